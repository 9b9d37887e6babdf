#include "service/catalogue/database/connection_pool.h"

#include <utility>

namespace vantro::service::catalogue {

namespace {

// For the pages that a browsing client reads again; the kernel caches the rest of the file.
constexpr int reader_cache_kib = 2 * 1024;

// About the number of threads that read at the same time.
constexpr size_t idle_max = 8;

} // namespace

std::unique_ptr<Database> ConnectionPool::take() {
    {
        const MutexLock guard(mutex_);
        if (!idle_.empty()) {
            std::unique_ptr<Database> database = std::move(idle_.back());
            idle_.pop_back();
            return database;
        }
    }
    return std::make_unique<Database>(file_, Database::Access::read, reader_cache_kib);
}

void ConnectionPool::give_back(std::unique_ptr<Database> database) {
    const MutexLock guard(mutex_);
    if (idle_.size() < idle_max) {
        idle_.push_back(std::move(database));
    }
}

void ConnectionPool::replace(const std::function<void()> &replace) {
    const WriterLock alone(replacing_);
    {
        const MutexLock guard(mutex_);
        idle_.clear();
    }
    replace();
}

} // namespace vantro::service::catalogue
