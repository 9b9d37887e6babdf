// The time of a listing without its messages: only vantrod's query code, in its own process.
#ifndef VANTRO_BENCH_OWN_QUERY_H
#define VANTRO_BENCH_OWN_QUERY_H

#include <memory>
#include <string>
#include <vector>

#include "bench/measure.h"
#include "bench/process.h"

namespace vantro::bench {

// Asks a catalogue for the first entries of "songs", from the request's bytes to the answer's, in a
// process of its own, where vantrod would run.
class OwnQuery {
  public:
    // @param directory the run's directory, which holds the collection.
    // @param state     a copy, within it, of vantrod's state directory, which only one process at a
    //                  time may use.
    // @param source    the id of the collection's source.
    OwnQuery(const std::string &directory, const std::string &state, int32_t source, int32_t count);
    ~OwnQuery();
    OwnQuery(const OwnQuery &) = delete;
    OwnQuery &operator=(const OwnQuery &) = delete;

    // A batch of queries, timed where they run; borrows this object.
    Batch batch();

    // Result word, count and records.
    const std::vector<char> &answer() const { return answer_; }

  private:
    int socket_ = -1;
    std::vector<char> answer_;
    std::unique_ptr<Child> peer_;
};

// The other side. @param what "SOCKET:SOURCE:COUNT:STATE:DIRECTORY".
int serve_query(const std::string &what);

} // namespace vantro::bench

#endif
