// Reads music directories into a list of tracks.
//
// A directory's own files come first, by disc, track number and natural order of their names, then
// its subdirectories in natural order. Links to directories are not followed, so links in a circle
// cost nothing. Whatever cannot be read is named once in the log and left out; nothing that lies
// in a directory ends the scan.
#ifndef VANTRO_SERVICE_CATALOGUE_SCANNER_H
#define VANTRO_SERVICE_CATALOGUE_SCANNER_H

#include <atomic>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "service/catalogue/track.h"

namespace vantro {

// Deepest nesting that is read. Nobody's music lies deeper, and it bounds the stack.
inline constexpr int directory_depth_max = 64;

class Scanner {
  public:
    // Takes one line about something that was left out.
    using Complain = std::function<void(const std::string &line)>;

    // `stop` is read between files: true ends the scan early. It outlives the scanner.
    Scanner(Complain complain, const std::atomic<bool> &stop);

    // Appends the tracks of one music directory. `source` begins their ids.
    void read(const std::filesystem::path &directory, int32_t source, std::vector<Track> &tracks);

  private:
    void read_directory(const std::filesystem::path &directory, int depth,
                        std::vector<Track> &tracks);
    void read_file(const std::filesystem::path &file, std::vector<Track> &tracks);
    void leave_out(const std::filesystem::path &what, std::string_view why);

    Complain complain_;
    const std::atomic<bool> &stop_;
    std::filesystem::path root_;
    int32_t source_ = 0;
};

} // namespace vantro

#endif
