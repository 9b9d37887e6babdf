#ifndef VANTRO_PLATFORM_PORTABLE_OBJECT_STATE_H
#define VANTRO_PLATFORM_PORTABLE_OBJECT_STATE_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/portable/change_line.h"

namespace vantro::platform {

// The present state of all objects of a publisher, as the lines of their change texts. The
// publisher keeps the state that it has published. A reader that starts over makes the state from a
// snapshot and the changes after it, and so reports the present state of each object.
class ObjectState {
  public:
    enum class Outcome { applied, malformed, object_too_long, all_too_long };

    // Applies a change. If that fails, also by std::bad_alloc, nothing has changed.
    // @param position of the change in the ring. An object's birth is the position of its first
    //   change.
    Outcome apply(std::string_view change, uint64_t position);

    // Replaces the state by the one that append_all() wrote, or only by that of `object`, if one is
    // named. @return whether the snapshot is well formed.
    bool load(std::string_view snapshot, std::string_view object = {});

    // Appends a snapshot: the objects' texts, each beginning with "#@", in the order in which the
    // objects were last changed, so that a new reader gets related objects in the order in which
    // they were published. The second line of each text, "+" and 16 hexadecimal digits, is the
    // object's birth. If there are more objects than births_bytes_max has room for, those that
    // were changed first have no such line. May throw std::bad_alloc.
    void append_all(std::string &text) const;
    // Bytes of the texts, without the births.
    size_t bytes() const { return bytes_; }

    // Most bytes of all births in a snapshot: enough for about 3,600 objects.
    static constexpr size_t births_bytes_max = 64 * 1024;

    bool holds(std::string_view object) const { return objects_.find(object) != objects_.end(); }

    // One text for each object, in the order of append_all().
    struct Text {
        std::string name;
        std::string text;
        uint64_t birth; // 0 if unknown
    };
    std::vector<Text> texts() const;

  private:
    // Keys are attribute names as they are written, still escaped; values whole lines.
    using Lines = std::map<std::string, std::string, std::less<>>;
    struct Object {
        Lines lines;
        size_t bytes = 0;     // of the whole text
        uint64_t birth = 0;   // the position of its first change
        uint64_t changed = 0; // the value of changes_ when it last changed
    };
    using Objects = std::map<std::string, Object, std::less<>>;

    // A line of the change that is being applied, and the place of the line that it replaces.
    struct Line {
        std::string_view name;
        std::string_view text; // empty when the attribute is deleted
        Lines::iterator place = {};
        bool is_new = false;
    };

    Outcome apply(const ObjectLine &head, std::string_view lines, uint64_t position);
    bool read_lines(std::string_view change);
    size_t place_lines(Object *kept, size_t bytes);
    void write_lines(Object &object, Lines &added);
    static void append(std::string &text, const Objects::value_type &object);
    static void append_start(std::string &text, const Objects::value_type &object);
    static void append_lines(std::string &text, const Objects::value_type &object);
    std::vector<const Objects::value_type *> in_order_of_change() const;

    Objects objects_;
    uint64_t changes_ = 0; // counts the changes that were applied
    size_t bytes_ = 0;
    std::vector<Line> lines_; // a member, so that a change of known attributes needs no heap memory
};

} // namespace vantro::platform

#endif
