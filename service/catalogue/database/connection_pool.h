// Connections for readers: one for each reading thread, and a few idle ones for the next reads.
#ifndef VANTRO_SERVICE_CATALOGUE_DATABASE_CONNECTION_POOL_H
#define VANTRO_SERVICE_CATALOGUE_DATABASE_CONNECTION_POOL_H

#include <filesystem>
#include <functional>
#include <memory>
#include <vector>

#include "common/locks.h"
#include "service/catalogue/database/database.h"

namespace vantro::service::catalogue {

class ConnectionPool {
  public:
    explicit ConnectionPool(std::filesystem::path file) : file_(std::move(file)) {}

    // Calls `read` within one state of the catalogue. Throws an Error. Any thread.
    template <typename Read>
    auto read(const Read &read) EXCLUDES(replacing_, mutex_) {
        // Held for one read only, so that replace() waits for one query at most.
        const ReaderLock open(replacing_);
        std::unique_ptr<Database> database = take();
        Transaction moment(*database);
        auto result = read(*database);
        moment.commit();
        give_back(std::move(database));
        return result;
    }

    // Calls `replace` while no reader of this pool has the file open.
    void replace(const std::function<void()> &replace) EXCLUDES(replacing_, mutex_);

  private:
    std::unique_ptr<Database> take() EXCLUDES(mutex_);
    void give_back(std::unique_ptr<Database> database) EXCLUDES(mutex_);

    const std::filesystem::path file_;
    SharedMutex replacing_; // held shared by every reader that has the file open
    Mutex mutex_ ACQUIRED_AFTER(replacing_);
    std::vector<std::unique_ptr<Database>> idle_ GUARDED_BY(mutex_);
};

} // namespace vantro::service::catalogue

#endif
