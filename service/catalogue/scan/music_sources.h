// The sources that there are now. Those of media roots come and go.
#ifndef VANTRO_SERVICE_CATALOGUE_SCAN_MUSIC_SOURCES_H
#define VANTRO_SERVICE_CATALOGUE_SCAN_MUSIC_SOURCES_H

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "common/locks.h"

namespace vantro::service::catalogue {

// A directory of music. Only `status`, by the scanning thread, and `gone` change.
struct MusicDirectory {
    int32_t id = 0;
    std::string path;
    std::string key; // by which the catalogue's file knows it; for a music directory its path
    std::string name;
    int32_t type = 0; // VANTRO_SOURCE_*
    std::atomic<int32_t> status = 0;
    std::atomic<bool> gone = false; // it is no source any more
};

using MusicPointer = std::shared_ptr<MusicDirectory>;

// Any thread.
class MusicSources {
  public:
    std::vector<MusicPointer> all() const EXCLUDES(mutex_) {
        const MutexLock guard(mutex_);
        return sources_;
    }
    // Null if there is none.
    MusicPointer find(int32_t id) const EXCLUDES(mutex_) {
        const MutexLock guard(mutex_);
        const auto found = std::find_if(sources_.begin(), sources_.end(),
                                        [id](const auto &each) { return each->id == id; });
        return found != sources_.end() ? *found : nullptr;
    }
    void add(MusicPointer source) EXCLUDES(mutex_) {
        const MutexLock guard(mutex_);
        sources_.push_back(std::move(source));
    }
    void remove(const MusicPointer &source) EXCLUDES(mutex_) {
        source->gone = true;
        const MutexLock guard(mutex_);
        std::erase(sources_, source);
    }

    // The number of a key. A key that is not known gets the next one, and keeps it.
    int32_t number_of(const std::string &key) EXCLUDES(mutex_) {
        const MutexLock guard(mutex_);
        int32_t most = 0;
        for (const auto &[known, number] : numbers_) {
            most = std::max(most, number);
        }
        return numbers_.emplace(key, most + 1).first->second;
    }
    void know(const std::string &key, int32_t number) EXCLUDES(mutex_) {
        const MutexLock guard(mutex_);
        numbers_[key] = number;
    }
    std::map<std::string, int32_t> numbers() const EXCLUDES(mutex_) {
        const MutexLock guard(mutex_);
        return numbers_;
    }

  private:
    mutable Mutex mutex_;
    std::vector<MusicPointer> sources_ GUARDED_BY(mutex_);
    std::map<std::string, int32_t> numbers_ GUARDED_BY(mutex_); // also of sources that are absent
};

} // namespace vantro::service::catalogue

#endif
