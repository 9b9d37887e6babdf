// Locks that Clang's thread-safety analysis follows (-Wthread-safety); other compilers see plain
// locks. Those of the standard library carry no annotations.
//
// A member that a lock guards is marked GUARDED_BY. A function that needs a lock held is marked
// REQUIRES; one that takes the lock itself, and so must be called without it, is marked EXCLUDES.
// Members without a mark are set before other threads see their object, are atomic, or have a
// comment that states their protection.
#ifndef VANTRO_COMMON_LOCKS_H
#define VANTRO_COMMON_LOCKS_H

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <shared_mutex>

#ifdef __clang__
#define VANTRO_ANNOTATION(attribute) __attribute__((attribute))
#else
#define VANTRO_ANNOTATION(attribute)
#endif

#define CAPABILITY(kind) VANTRO_ANNOTATION(capability(kind))
#define SCOPED_CAPABILITY VANTRO_ANNOTATION(scoped_lockable)
#define GUARDED_BY(lock) VANTRO_ANNOTATION(guarded_by(lock))
// For a pointer: guards its target.
#define PT_GUARDED_BY(lock) VANTRO_ANNOTATION(pt_guarded_by(lock))
#define ACQUIRED_AFTER(...) VANTRO_ANNOTATION(acquired_after(__VA_ARGS__))
#define REQUIRES(...) VANTRO_ANNOTATION(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) VANTRO_ANNOTATION(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) VANTRO_ANNOTATION(acquire_capability(__VA_ARGS__))
#define ACQUIRE_SHARED(...) VANTRO_ANNOTATION(acquire_shared_capability(__VA_ARGS__))
#define TRY_ACQUIRE(result) VANTRO_ANNOTATION(try_acquire_capability(result))
#define RELEASE(...) VANTRO_ANNOTATION(release_capability(__VA_ARGS__))
#define RELEASE_SHARED(...) VANTRO_ANNOTATION(release_shared_capability(__VA_ARGS__))
#define ASSERT_CAPABILITY(lock) VANTRO_ANNOTATION(assert_capability(lock))
// Only with a comment that explains why the analysis does not work there.
#define NO_THREAD_SAFETY_ANALYSIS VANTRO_ANNOTATION(no_thread_safety_analysis)

namespace vantro {

// Constant-initialised and trivially destroyed, so that threads may use one that is not a local
// variable while the process starts and ends.
class CAPABILITY("mutex") Mutex {
  public:
    constexpr Mutex() = default;
    Mutex(const Mutex &) = delete;
    Mutex &operator=(const Mutex &) = delete;

    void lock() ACQUIRE() { mutex_.lock(); }
    bool try_lock() TRY_ACQUIRE(true) { return mutex_.try_lock(); }
    void unlock() RELEASE() { mutex_.unlock(); }

    // Declares to the analysis that the lock is held, if it cannot detect that. Does nothing.
    void assume_held() const ASSERT_CAPABILITY(this) {}

  private:
    friend class Condition;
    std::mutex mutex_;
};

// Holds a mutex until the end of the scope. unlock() releases it before that, and lock() takes it
// again.
class SCOPED_CAPABILITY MutexLock {
  public:
    explicit MutexLock(Mutex &mutex) ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~MutexLock() RELEASE() {
        if (held_) {
            mutex_.unlock();
        }
    }
    MutexLock(const MutexLock &) = delete;
    MutexLock &operator=(const MutexLock &) = delete;

    void lock() ACQUIRE() {
        mutex_.lock();
        held_ = true;
    }
    void unlock() RELEASE() {
        held_ = false;
        mutex_.unlock();
    }

  private:
    Mutex &mutex_;
    bool held_ = true;
};

// A condition variable. Its waits release the mutex, which the caller holds, and take it again.
// Test conditions with loops around the waits: the analysis does not examine a predicate.
class Condition {
  public:
    void notify_one() { condition_.notify_one(); }
    void notify_all() { condition_.notify_all(); }

    void wait(Mutex &mutex) REQUIRES(mutex) {
        Held held(mutex.mutex_);
        condition_.wait(held.lock);
    }
    // @return false if the time limit came first.
    template <typename Clock, typename Duration>
    bool wait_until(Mutex &mutex, const std::chrono::time_point<Clock, Duration> &time)
        REQUIRES(mutex) {
        Held held(mutex.mutex_);
        return condition_.wait_until(held.lock, time) == std::cv_status::no_timeout;
    }

  private:
    // Lends a locked mutex to the standard library. The caller holds it afterwards, also if the
    // thread is cancelled.
    struct Held {
        explicit Held(std::mutex &mutex) : lock(mutex, std::adopt_lock) {}
        ~Held() { lock.release(); }
        std::unique_lock<std::mutex> lock;
    };

    std::condition_variable condition_;
};

// A lock that any number of readers hold together, or one writer alone.
class CAPABILITY("mutex") SharedMutex {
  public:
    void lock() ACQUIRE() { mutex_.lock(); }
    void unlock() RELEASE() { mutex_.unlock(); }
    void lock_shared() ACQUIRE_SHARED() { mutex_.lock_shared(); }
    void unlock_shared() RELEASE_SHARED() { mutex_.unlock_shared(); }

  private:
    std::shared_mutex mutex_;
};

class SCOPED_CAPABILITY ReaderLock {
  public:
    explicit ReaderLock(SharedMutex &mutex) ACQUIRE_SHARED(mutex) : mutex_(mutex) {
        mutex_.lock_shared();
    }
    ~ReaderLock() RELEASE() { mutex_.unlock_shared(); }
    ReaderLock(const ReaderLock &) = delete;
    ReaderLock &operator=(const ReaderLock &) = delete;

  private:
    SharedMutex &mutex_;
};

class SCOPED_CAPABILITY WriterLock {
  public:
    explicit WriterLock(SharedMutex &mutex) ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~WriterLock() RELEASE() { mutex_.unlock(); }
    WriterLock(const WriterLock &) = delete;
    WriterLock &operator=(const WriterLock &) = delete;

  private:
    SharedMutex &mutex_;
};

} // namespace vantro

#endif
