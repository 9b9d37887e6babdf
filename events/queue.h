// What a handle knows of its player's objects, and the one event that it hands out at a time.
//
// An entry is in one of two lists. In the dirty queue it is one change that is not reported yet,
// which `dict` holds; an object has as many entries there as it has changes. In the clean list it
// is an object without unreported changes, and there is one of a name.
//
// An object's first change takes its entry out of the clean list, together with the application's
// value. The reported entry goes back there. The object's next entry takes its place and the value:
// so the list holds as many entries as there are objects, and every event of an object has the
// value that the application set last. The last change of an object that has ended stays out of the
// clean list: a later object of that name is another one.
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
    ObjectEntry *clean_list; // Owned. The entry that came last is first; one of a name.
    ObjectEntry *dirty_head; // Owned. In the order in which they are to be reported.
    ObjectEntry **dirty_tail;
    // The entry that the event reports; NULL for "state". In the clean list, but owned where
    // `is_last`.
    ObjectEntry *current_entry;
    mosk_dict *state_dict; // Owned. All attributes of "state"; NULL if that is no more.
    void *state_user_data;
    VantroEvent event; // Owns its records, and its dictionary unless it is `state_dict`.
    int all_fd;
    int state_fd;
    bool is_polled; // The application has a descriptor for events.
    bool is_away;   // The publisher has ended; another is awaited.
    // The file whose newest change could not be applied for want of memory; -1 for none. It is
    // applied again before anything else of that file is read.
    int unapplied_fd;
    ssize_t change_length; // Of the change that was read last, which is kept in change().

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
// have been read beyond a change of "state" that the descriptor of "state" still has. A change that
// is published after this look is unread at both.
bool state_is_unread(const EventQueue &queue);

// Whether there is a change that was read and is not reported yet.
bool has_unreported(const EventQueue &queue);

// Called when the publisher has ended. Continues with the present publisher, whose objects are all
// new, and makes the event VANTRO_OBJECT_RECONNECTED; if there is none, makes the event that
// nothing is new.
// @return 0, or -1 with errno.
int come_back(EventQueue &queue);

// Releases what the event holds, and clears all of it but the player's state.
void evcleanup(EventQueue &queue);

// Whether there is a handle with an open player; logged if not.
bool has_player(const VantroHandle *handle);

// Makes an entry that is in no list. @return null for want of memory.
ObjectEntry *new_entry(std::string_view name);
void free_entry(ObjectEntry *entry);

// The newest unreported change of an object, or null.
ObjectEntry *last_dirty(const EventQueue &queue, std::string_view name);

// Take an entry out of its list: the first of a name, or null, or the head of the dirty queue.
ObjectEntry *take_clean(EventQueue &queue, std::string_view name);
ObjectEntry *take_dirty(EventQueue &queue, std::string_view name);
ObjectEntry *take_dirty_head(EventQueue &queue);

// Put an entry that is in no list into one.
void enqueue_clean(EventQueue &queue, ObjectEntry *entry);
void enqueue_dirty(EventQueue &queue, ObjectEntry *entry);

} // namespace vantro::events

#endif
