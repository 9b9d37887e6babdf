/**
 * @file
 * Events of a player.
 */
#ifndef VANTRO_CPP_EVENTS_HPP
#define VANTRO_CPP_EVENTS_HPP

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string_view>
#include <utility>
#include <variant>

#include <vantro/cpp/result.hpp>
#include <vantro/events.h>
#include <vantro/extras.h>

namespace vantro {

/** The player stopped playing because of an error, VANTRO_ERROR_* of catalogue.h. */
struct ErrorEvent {
    int32_t code; /**< VANTRO_ERROR_*. */
};

/** A media source; NULL where its text cannot be understood. */
struct SourceEvent {
    int32_t type;              /**< VANTRO_SOURCE_*. */
    const MediaSource *source; /**< The source, or NULL. */
};

/** State, rate, repeat or shuffle changed; Event::now() says to what. */
struct StateEvent {
    VantroStateInfo before; /**< What was before. */
};

/** The track session. */
struct SessionEvent {
    VantroTrksessionInfo session; /**< What it is now. */
};

/** The current track; node and metadata may be NULL. */
struct TrackEvent {
    int32_t index;            /**< Its index within the track session. */
    uint64_t tsid;            /**< Id of that track session. */
    const MediaNode *node;    /**< The track, or NULL. */
    const Metadata *metadata; /**< What is known of it, or NULL. */
};

/** The position within the track. */
struct PositionEvent {
    std::chrono::milliseconds position; /**< From the track's start. */
};

/** A change of another object, or one that cannot be understood; Event::attribute() reads it. */
struct OtherEvent {};

/** One event. What it points to, and its texts, live until the next event of its player. */
class Event {
  public:
    /** What an event can be. */
    using What = std::variant<ErrorEvent, SourceEvent, StateEvent, SessionEvent, TrackEvent,
                              PositionEvent, OtherEvent>;

    /** @param event the library's record; borrowed. */
    explicit Event(const VantroEvent &event) : event_(&event), what_(what_of(event)) {}

    /** @return what it is, for std::visit(). */
    const What &what() const { return what_; }

    /** @return what it is, if it is of that kind, else NULL. */
    template <typename Kind>
    const Kind *as() const {
        return std::get_if<Kind>(&what_);
    }

    /** @return what the player was last known to do, whatever the event is about. */
    VantroStateInfo now() const {
        return {event_->state, event_->rate, event_->repeat, event_->shuffle};
    }

    /** @return the name of the object that changed. */
    std::string_view object() const { return event_->object_name; }

    /**
     * An attribute that changed (of "state": one that there is), or nothing. A program that calls
     * this links the platform library too (`Vantro::platform`, or `pkg-config vantro-platform`).
     * @param name the attribute's name.
     * @return its text, which lives as long as the event.
     */
    std::optional<std::string_view> attribute(const char *name) const {
        const char *const value = event_->dict ? mosk_dict_find_value(event_->dict, name) : nullptr;
        return value ? std::optional<std::string_view>(value) : std::nullopt;
    }

    /** @return what Events::keep() gave to the object, or NULL. */
    void *user_data() const { return event_->user_data; }

    /** @return the library's record. */
    const VantroEvent &record() const { return *event_; }

  private:
    static What what_of(const VantroEvent &event) {
        const VantroEventDetails &details = event.details;
        switch (event.type) {
        case VANTRO_EVENT_ERROR:
            return ErrorEvent{details.error.code};
        case VANTRO_EVENT_MEDIASOURCE:
            return SourceEvent{details.mediasource.type, details.mediasource.media_source};
        case VANTRO_EVENT_STATE:
            return StateEvent{{details.state.state, details.state.rate, details.state.repeat,
                               details.state.shuffle}};
        case VANTRO_EVENT_TRKSESSION:
            return SessionEvent{
                {details.trksession.type, details.trksession.length, details.trksession.tsid}};
        case VANTRO_EVENT_TRACK:
            return TrackEvent{details.track.index, details.track.tsid, details.track.media_node,
                              details.track.metadata};
        case VANTRO_EVENT_STATUS:
            return PositionEvent{std::chrono::milliseconds(details.status.position)};
        default:
            return OtherEvent{};
        }
    }

    const VantroEvent *event_;
    What what_;
};

/** The events of the player that is open on a handle, which is borrowed. See events.h. */
class Events {
  public:
    /** @param handle outlives this object. */
    explicit Events(VantroHandle *handle) : handle_(handle) {}

    /** Does not block. @return the next event; nothing if nothing is new. */
    Result<std::optional<Event>> next() {
        errno = EINVAL; // a bad handle leaves it
        const VantroEvent *const event = vantro_event_get(handle_);
        if (!event) {
            return Failure::of_errno(errno);
        }
        return event->object_name ? std::optional<Event>(std::in_place, *event) : std::nullopt;
    }

    /** Waits until there may be an event. @return done; a signal handler that runs is the failure
     *  `interrupted`. */
    Result<void> wait() {
        errno = EINVAL;
        return vantro_event_wait(handle_) == 0 ? Result<void>() : Failure::of_errno(errno);
    }

    /** The same for a limited time. @param time 0 only looks, below 0 is no limit. @return whether
     * there may be an event, or wake() was called. */
    Result<bool> wait_for(std::chrono::milliseconds time) {
        const int result = vantro_event_wait_for(handle_, static_cast<int>(time.count()));
        return result >= 0 ? Result<bool>(result == 1) : Failure::of_errno(errno);
    }

    /** Ends a wait, or the next one. Any thread. */
    void wake() { vantro_event_wake(handle_); }

    /** @return a descriptor for event loops, which stays the library's; see vantro_event_fd(). */
    Result<int> descriptor() {
        const int descriptor = vantro_event_fd(handle_);
        return descriptor >= 0 ? Result<int>(descriptor) : Failure::of_errno(errno);
    }

    /** Gives a value to the object behind the current event. @param data any value. @return done,
     *  or `invalid` if there is no such object. */
    Result<void> keep(void *data) {
        return vantro_event_data_set(handle_, data) == 0 ? Result<void>()
                                                         : Failure::of_errno(errno);
    }

  private:
    VantroHandle *handle_;
};

/**
 * Every event as it comes. The walk blocks between events, goes on when a signal handler ran,
 * passes over what cannot be understood, and ends when the player can be followed no more or the
 * caller breaks off; done() then says why.
 */
class Following {
  public:
    /** @param handle outlives this object. */
    explicit Following(VantroHandle *handle) : events_(handle) {}

    /** The current event; all places of one walk are the same one. */
    class Iterator {
      public:
        using value_type = Event;               /**< For the standard library. */
        using difference_type = std::ptrdiff_t; /**< For the standard library. */

        /** @param all outlives the iterator. */
        explicit Iterator(Following &all) : all_(&all) {}
        /** @return the event, which lives until the next one. */
        const Event &operator*() const { return *all_->event_; }
        /** @return as operator*. */
        const Event *operator->() const { return &**this; }
        /** Blocks for the next event. @return this iterator. */
        Iterator &operator++() {
            all_->advance();
            return *this;
        }
        /** As the prefix form. */
        void operator++(int) { ++*this; }
        /** @return whether the walk has ended; done() says why. */
        bool operator==(std::default_sentinel_t) const { return !all_->event_; }

      private:
        Following *all_;
    };

    /** Blocks for the first event. @return its place. */
    Iterator begin() {
        if (!event_) {
            advance();
        }
        return Iterator(*this);
    }
    /** @return what the walk ends at. */
    std::default_sentinel_t end() const { return {}; }

    /** @return why the walk ended; done, where the caller broke off. */
    Result<void> done() const { return failure_ ? Result<void>(*failure_) : Result<void>(); }

  private:
    // Failures in a row without an event in between. If the objects' file is corrupt, only failures
    // come.
    static constexpr int most_passed_over = 100;

    void advance() {
        event_.reset();
        failure_.reset();
        for (int passed_over = 0; passed_over < most_passed_over;) {
            Result<std::optional<Event>> next = events_.next();
            if (next && *next) {
                event_ = **next;
                failure_.reset();
                return;
            }
            if (next) {
                const Result<void> waited = events_.wait();
                if (waited || waited.failure().why() == Reason::interrupted) {
                    continue;
                }
                failure_ = waited.failure();
                return;
            }
            failure_ = next.failure();
            if (failure_->number != EBADMSG) {
                return;
            }
            ++passed_over;
        }
    }

    Events events_;
    std::optional<Event> event_;
    std::optional<Failure> failure_;
};

} // namespace vantro

#endif
