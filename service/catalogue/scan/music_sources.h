// The present sources. Those of media roots come and go.
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
    std::string key; // its name in the catalogue's file; for a music directory the path
    std::string name;
    int32_t type = 0; // VANTRO_SOURCE_*
    std::atomic<int32_t> status = 0;
    std::atomic<bool> gone = false; // no longer a source
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

    // The number of a key. An unknown key gets the next number, and keeps it.
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
