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

/** A media source; NULL if its text is malformed. */
struct SourceEvent {
    int32_t type;              /**< VANTRO_SOURCE_*. */
    const MediaSource *source; /**< The source, or NULL. */
};

/** State, rate, repeat or shuffle changed; Event::now() returns the present values. */
struct StateEvent {
    VantroStateInfo before; /**< The previous values. */
};

/** The track session. */
struct SessionEvent {
    VantroTrksessionInfo session; /**< The present track session. */
};

/** The current track; node and metadata may be NULL. */
struct TrackEvent {
    int32_t index;            /**< Its index within the track session. */
    uint64_t tsid;            /**< Id of that track session. */
    const MediaNode *node;    /**< The track, or NULL. */
    const Metadata *metadata; /**< The track's metadata, or NULL. */
};

/** The position within the track. */
struct PositionEvent {
    std::chrono::milliseconds position; /**< From the track's start. */
};

/** A change of another object, or a malformed change; Event::attribute() reads it. */
struct OtherEvent {};

/** One event. Its texts, and the records that it points to, live until the player's next event. */
class Event {
  public:
    /** The kinds of events. */
    using What = std::variant<ErrorEvent, SourceEvent, StateEvent, SessionEvent, TrackEvent,
                              PositionEvent, OtherEvent>;

    /** @param event the library's record; borrowed. */
    explicit Event(const VantroEvent &event) : event_(&event), what_(what_of(event)) {}

    /** @return the event's data by kind, for std::visit(). */
    const What &what() const { return what_; }

    /** @return the event's data if it is of that kind, else NULL. */
    template <typename Kind>
    const Kind *as() const {
        return std::get_if<Kind>(&what_);
    }

    /** @return the player's last known state and modes, whatever the event's kind. */
    VantroStateInfo now() const {
        return {event_->state, event_->rate, event_->repeat, event_->shuffle};
    }

    /** @return the name of the object that changed. */
    std::string_view object() const { return event_->object_name; }

    /**
     * A changed attribute (of "state": any attribute), or nothing. A program that calls this must
     * also link the platform library (`Vantro::platform`, or `pkg-config vantro-platform`).
     * @param name the attribute's name.
     * @return its text, which lives as long as the event.
     */
    std::optional<std::string_view> attribute(const char *name) const {
        const char *const value = event_->dict ? mosk_dict_find_value(event_->dict, name) : nullptr;
        return value ? std::optional<std::string_view>(value) : std::nullopt;
    }

    /** @return the value that Events::keep() attached to the object, or NULL. */
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
        errno = EINVAL; // a bad handle does not set it
        const VantroEvent *const event = vantro_event_get(handle_);
        if (!event) {
            return Failure::of_errno(errno);
        }
        return event->object_name ? std::optional<Event>(std::in_place, *event) : std::nullopt;
    }

    /** Waits until there may be an event. @return success; if a signal handler runs, the failure
     * `interrupted`. */
    Result<void> wait() {
        errno = EINVAL;
        return vantro_event_wait(handle_) == 0 ? Result<void>() : Failure::of_errno(errno);
    }

    /** The same for a limited time. @param time 0: returns at once; below 0: no limit. @return
     * whether there may be an event, or wake() was called. */
    Result<bool> wait_for(std::chrono::milliseconds time) {
        const int result = vantro_event_wait_for(handle_, static_cast<int>(time.count()));
        return result >= 0 ? Result<bool>(result == 1) : Failure::of_errno(errno);
    }

    /** Ends a wait, or the next one. Any thread. */
    void wake() { vantro_event_wake(handle_); }

    /** @return a descriptor for event loops, which the library owns; see vantro_event_fd(). */
    Result<int> descriptor() {
        const int descriptor = vantro_event_fd(handle_);
        return descriptor >= 0 ? Result<int>(descriptor) : Failure::of_errno(errno);
    }

    /** Attaches a value to the object of the current event. @param data any value. @return success,
     * or `invalid` if there is no such object. */
    Result<void> keep(void *data) {
        return vantro_event_data_set(handle_, data) == 0 ? Result<void>()
                                                         : Failure::of_errno(errno);
    }

  private:
    VantroHandle *handle_;
};

/**
 * A range of all events. Iterating blocks between events, continues after a signal handler, skips
 * malformed changes, and ends when the player can no longer be followed or the caller stops; done()
 * then returns the reason.
 */
class Following {
  public:
    /** @param handle outlives this object. */
    explicit Following(VantroHandle *handle) : events_(handle) {}

    /** An iterator at the current event; all iterators of one range have the same position. */
    class Iterator {
      public:
        using value_type = Event;               /**< For the standard library. */
        using difference_type = std::ptrdiff_t; /**< For the standard library. */

        /** @param all outlives the iterator. */
        explicit Iterator(Following &all) : all_(&all) {}
        /** @return the event, which lives until the next one. */
        const Event &operator*() const { return *all_->event_; }
        /** @return a pointer to the event. */
        const Event *operator->() const { return &**this; }
        /** Blocks for the next event. @return this iterator. */
        Iterator &operator++() {
            all_->advance();
            return *this;
        }
        /** Like the prefix form. */
        void operator++(int) { ++*this; }
        /** @return whether iterating has ended; done() returns the reason. */
        bool operator==(std::default_sentinel_t) const { return !all_->event_; }

      private:
        Following *all_;
    };

    /** Blocks for the first event. @return an iterator at the first event. */
    Iterator begin() {
        if (!event_) {
            advance();
        }
        return Iterator(*this);
    }
    /** @return the end of the range. */
    std::default_sentinel_t end() const { return {}; }

    /** @return the reason for the end; success if the caller stopped. */
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
