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

// All objects of a publisher in full, as the lines of their change texts. The publisher keeps one
// of what it published; a reader makes one of a snapshot and what came after it, to tell each
// object as it is and not as it was.
class Picture {
  public:
    enum class Outcome { applied, malformed, object_too_long, all_too_long };

    // Applies a change, or leaves everything as it was. May throw std::bad_alloc, likewise.
    // @param position where the change stands in the ring: that of an object's first change is its
    //   birth.
    Outcome apply(std::string_view change, uint64_t position);

    // Replaces everything by what append_all() wrote; only `object` of it where one is named.
    bool load(std::string_view snapshot, std::string_view object = {});

    // The objects' texts one after the other, each beginning "#@", in the order in which the
    // objects were last changed: a reader that begins with them is told what belongs together in
    // the order in which it was published. A second line, "+" and 16 hexadecimal digits, is the
    // object's birth; where there are very many objects, the first in order go without. May throw
    // std::bad_alloc.
    void append_all(std::string &text) const;
    // Of the texts, without the births.
    size_t bytes() const { return bytes_; }

    // What the births of a snapshot take at most: some 3,600 objects have room for one.
    static constexpr size_t births_bytes_max = 64 * 1024;

    bool holds(std::string_view object) const { return objects_.find(object) != objects_.end(); }

    // One text an object, in the same order.
    struct Text {
        std::string name;
        std::string text;
        uint64_t birth; // 0 where that is not known
    };
    std::vector<Text> texts() const;

  private:
    // Keys are attribute names as they are written, still escaped; values whole lines.
    using Lines = std::map<std::string, std::string, std::less<>>;
    struct Object {
        Lines lines;
        size_t bytes = 0;     // of the text in full
        uint64_t birth = 0;   // the position of its first change
        uint64_t changed = 0; // the value of changes_ when it last changed
    };
    using Objects = std::map<std::string, Object, std::less<>>;

    // A line of the change in hand, and what it replaces.
    struct Line {
        std::string_view name;
        std::string_view text; // empty when the attribute is deleted
        Lines::iterator place = {};
        bool is_new = false;
    };

    Outcome apply(const ObjectLine &head, std::string_view lines, uint64_t position);
    static void append(std::string &text, const Objects::value_type &object);
    static void append_lines(std::string &text, const Objects::value_type &object);
    std::vector<const Objects::value_type *> in_order_of_change() const;

    Objects objects_;
    uint64_t changes_ = 0; // counts the changes that were applied
    size_t bytes_ = 0;
    std::vector<Line> lines_; // kept for its memory: a change of known attributes costs no heap
};

} // namespace vantro::platform

#endif
