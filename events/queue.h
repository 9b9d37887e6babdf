// A handle's copy of its player's objects, and the single event that it hands out at a time.
//
// An entry is in one of two lists. In the dirty queue it is one unreported change, which `dict`
// holds; an object has one entry there for each of its changes. In the clean list it is an object
// without unreported changes, and there is one entry for a name.
//
// An object's first change takes the object's entry out of the clean list, together with the
// application's value. The reported entry goes back to the clean list. The object's next entry
// replaces it and takes its value: so the list has one entry for each object, and every event of an
// object has the value that the application set last. The last change of an object that has ended
// does not return to the clean list: a later object of that name is another object.
#ifndef VANTRO_EVENTS_QUEUE_H
#define VANTRO_EVENTS_QUEUE_H

#include <string_view>

#include <sys/types.h>

#include <vantro/platform/dictionary.h>

#include "platform/portable/guards.h"
#include "player/handle.h"

// One block, with the object's name and its NUL after the fields.
struct ObjectEntry {
    void *user_data;
    ObjectEntry *next;
    mosk_dict *dict; // Owned. NULL, or empty, while in the clean list.
    bool is_last;    // The object ended after this change.

    char *name() { return reinterpret_cast<char *>(this + 1); }
};

// One block, with room for a copy of the handle's read buffer after the fields.
struct EventQueue {
    ObjectEntry *clean_list; // Owned. The newest entry comes first; one for each name.
    ObjectEntry *dirty_head; // Owned. In the order in which they are to be reported.
    ObjectEntry **dirty_tail;
    // The entry that the event reports; NULL for "state". In the clean list, but owned if
    // `is_last`.
    ObjectEntry *current_entry;
    mosk_dict *state_dict; // Owned. All attributes of "state"; NULL if the object has ended.
    void *state_user_data;
    VantroEvent event; // Owns its records, and its dictionary unless it is `state_dict`.
    int all_fd;
    int state_fd;
    bool is_polled; // The application has a descriptor for events.
    bool is_away;   // The publisher has ended; another is awaited.
    // The file whose newest change could not be applied for lack of memory; -1: none. That change
    // is applied before anything else of that file is read.
    int unapplied_fd;
    ssize_t change_length; // Length of the change that was read last, which change() holds.

    char *change() { return reinterpret_cast<char *>(this + 1); }
};

namespace vantro::events {

using platform::CancelDisabled;
using platform::KeepErrno;

// Opens an object of the handle's player.
// @return a descriptor, or -1 with errno.
int openobj(const VantroHandle *handle, const char *object);

// Makes the handle's queue. Ends the process if there is no memory for it. @return the queue, or
// null with errno.
EventQueue *newq(VantroHandle *handle);

// The handle's queue, which is made if there is none. @return as newq().
EventQueue *queue_of(VantroHandle *handle);

// Whether a change of "state" is unread. Only the descriptor of all objects is watched, and it may
// have been read beyond a change of "state" that is unread at the descriptor of "state". A change
// that is published after this check is unread at both.
bool state_is_unread(const EventQueue &queue);

// Whether there is a change that was read and is not reported yet.
bool has_unreported(const EventQueue &queue);

// Called when the publisher has ended. Continues with the present publisher, whose objects are all
// new, and makes the event VANTRO_OBJECT_RECONNECTED; if there is none, makes the event that
// nothing is new.
// @return 0, or -1 with errno.
int come_back(EventQueue &queue);

// Releases the contents of the event, and clears everything except the player's state.
void evcleanup(EventQueue &queue);

// Whether there is a handle with an open player; logged if not.
bool has_player(const VantroHandle *handle);

// Makes an entry that is in no list. @return null if there is no memory.
ObjectEntry *new_entry(std::string_view name);
void free_entry(ObjectEntry *entry);

// The newest unreported change of an object, or null.
ObjectEntry *last_dirty(const EventQueue &queue, std::string_view name);

// Take an entry out of its list: the first one of a name, or the head of the dirty queue; or null.
ObjectEntry *take_clean(EventQueue &queue, std::string_view name);
ObjectEntry *take_dirty(EventQueue &queue, std::string_view name);
ObjectEntry *take_dirty_head(EventQueue &queue);

// Put an entry that is in no list into one.
void enqueue_clean(EventQueue &queue, ObjectEntry *entry);
void enqueue_dirty(EventQueue &queue, ObjectEntry *entry);

} // namespace vantro::events

#endif
