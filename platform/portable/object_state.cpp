#include "platform/portable/object_state.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

#include <vantro/platform/limits.h>

namespace vantro::platform {

namespace {

constexpr std::string_view object_start = "#@";

// Removes the next line, with its newline, from the front of a text. Empty if none is complete.
std::string_view take_line(std::string_view &text) {
    const std::string_view line = text.substr(0, text.find('\n') + 1);
    text.remove_prefix(line.size());
    return line;
}

// The line of an object's birth: a sign with which no attribute's line begins, the digits, and the
// newline.
constexpr char birth_sign = '+';
constexpr size_t birth_digits = 16;
constexpr size_t birth_line_size = 1 + birth_digits + 1;

// Removes a birth's line from the front of a text, if there is one. @return whether it is well
// formed.
bool take_birth(std::string_view &text, uint64_t &birth) {
    birth = 0;
    if (!text.starts_with(birth_sign)) {
        return true;
    }
    const std::string_view line = take_line(text);
    const char *const digits = line.data() + 1;
    const auto [end, error] = std::from_chars(digits, line.data() + line.size(), birth, 16);
    return line.size() == birth_line_size && error == std::errc() && end == digits + birth_digits;
}

std::string_view without_newline(std::string_view line) {
    return line.substr(0, line.empty() ? 0 : line.size() - 1);
}

} // namespace

ObjectState::Outcome ObjectState::apply(std::string_view change, uint64_t position) {
    const ObjectLine head = parse_object_line(without_newline(take_line(change)));
    return apply(head, change, position);
}

ObjectState::Outcome ObjectState::apply(const ObjectLine &head, std::string_view change,
                                        uint64_t position) {
    if (head.result <= KIVO_END) {
        return Outcome::malformed;
    }
    const auto found = objects_.find(head.name);
    const size_t bytes_before = found == objects_.end() ? 0 : found->second.bytes;
    if (head.result == KIVO_OBJECT_DELETED) {
        if (!change.empty()) {
            return Outcome::malformed;
        }
        if (found != objects_.end()) {
            bytes_ -= bytes_before;
            objects_.erase(found);
        }
        return Outcome::applied;
    }

    if (!read_lines(change)) {
        return Outcome::malformed;
    }
    const bool keeps = found != objects_.end() && head.result != KIVO_OBJECT_TRUNCATED;
    const size_t bytes =
        place_lines(keeps ? &found->second : nullptr,
                    keeps ? bytes_before : object_start.size() + head.name.size() + 1);
    if (bytes > OBJECT_CHANGE_MAX) {
        return Outcome::object_too_long;
    }
    if (bytes_ - bytes_before + bytes > OBJECT_TOTAL_MAX) {
        return Outcome::all_too_long;
    }

    // Allocates all memory first, so that nothing can fail once the object is changed.
    Lines added;
    for (const Line &line : lines_) {
        if (!line.is_new) {
            line.place->second.reserve(line.text.size());
        } else if (!line.text.empty()) {
            added.emplace_hint(added.end(), line.name, line.text);
        }
    }
    const bool is_born = found == objects_.end();
    Object &object = is_born ? objects_[std::string(head.name)] : found->second;
    if (is_born) {
        object.birth = position;
    }
    if (!keeps) {
        object.lines.clear();
    }
    write_lines(object, added);
    object.bytes = bytes;
    object.changed = ++changes_;
    bytes_ += bytes - bytes_before;
    return Outcome::applied;
}

// Fills lines_, sorted by name. If two lines have the same attribute, the later one counts. @return
// whether the lines are well formed.
bool ObjectState::read_lines(std::string_view change) {
    lines_.clear();
    while (!change.empty()) {
        const std::string_view line = take_line(change);
        const AttributeLine attribute = parse_attribute_line(without_newline(line));
        if (attribute.name.empty()) {
            return false;
        }
        lines_.push_back({attribute.name, attribute.is_set ? line : std::string_view()});
    }
    std::sort(lines_.begin(), lines_.end(), [](const Line &one, const Line &other) {
        const int order = one.name.compare(other.name);
        return order != 0 ? order < 0 : one.name.data() < other.name.data();
    });
    const auto first =
        std::unique(lines_.rbegin(), lines_.rend(), [](const Line &one, const Line &other) {
            return one.name == other.name;
        }).base();
    lines_.erase(lines_.begin(), first);
    return true;
}

// Records which line of an object each of lines_ replaces; `kept` is null if the object keeps no
// lines. @return the bytes of its text with lines_; without them it had `bytes`.
size_t ObjectState::place_lines(Object *kept, size_t bytes) {
    for (Line &line : lines_) {
        line.is_new = true;
        if (kept) {
            line.place = kept->lines.find(line.name);
            line.is_new = line.place == kept->lines.end();
        }
        bytes += line.text.size() - (line.is_new ? 0 : line.place->second.size());
    }
    return bytes;
}

// Needs no memory: `added` has the new lines, and the others have room.
void ObjectState::write_lines(Object &object, Lines &added) {
    for (const Line &line : lines_) {
        if (!line.is_new && line.text.empty()) {
            object.lines.erase(line.place);
        } else if (!line.is_new) {
            line.place->second = line.text;
        }
    }
    object.lines.merge(added);
}

bool ObjectState::load(std::string_view snapshot, std::string_view object) {
    objects_.clear();
    bytes_ = 0;
    while (!snapshot.empty()) {
        if (!snapshot.starts_with(object_start)) {
            return false;
        }
        // An attribute's line cannot begin with these characters: they would be escaped.
        const size_t next = snapshot.find("\n#@");
        std::string_view text =
            snapshot.substr(0, next == snapshot.npos ? snapshot.size() : next + 1);
        snapshot.remove_prefix(text.size());
        const ObjectLine head = parse_object_line(without_newline(take_line(text)));
        uint64_t birth = 0;
        if (head.result != KIVO_OBJECT_TRUNCATED || !take_birth(text, birth)) {
            return false;
        }
        if ((object.empty() || head.name == object) &&
            apply(head, text, birth) != Outcome::applied) {
            return false;
        }
    }
    return true;
}

void ObjectState::append(std::string &text, const Objects::value_type &object) {
    append_start(text, object);
    append_lines(text, object);
}

void ObjectState::append_start(std::string &text, const Objects::value_type &object) {
    text.append(object_start).append(object.first).append("\n");
}

void ObjectState::append_lines(std::string &text, const Objects::value_type &object) {
    for (const auto &[name, line] : object.second.lines) {
        text.append(line);
    }
}

std::vector<const ObjectState::Objects::value_type *> ObjectState::in_order_of_change() const {
    std::vector<const Objects::value_type *> order;
    order.reserve(objects_.size());
    for (const auto &object : objects_) {
        order.push_back(&object);
    }
    std::sort(order.begin(), order.end(), [](const auto *one, const auto *other) {
        return one->second.changed < other->second.changed;
    });
    return order;
}

void ObjectState::append_all(std::string &text) const {
    size_t without_birth = objects_.size();
    without_birth -= std::min(without_birth, births_bytes_max / birth_line_size);
    for (const auto *object : in_order_of_change()) {
        append_start(text, *object);
        if (without_birth > 0) {
            --without_birth;
        } else {
            char line[birth_line_size + 1];
            std::snprintf(line, sizeof line, "%c%016llx\n", birth_sign,
                          static_cast<unsigned long long>(object->second.birth));
            text.append(line);
        }
        append_lines(text, *object);
    }
}

std::vector<ObjectState::Text> ObjectState::texts() const {
    std::vector<Text> all;
    all.reserve(objects_.size());
    for (const auto *object : in_order_of_change()) {
        Text &made = all.emplace_back(Text{object->first, {}, object->second.birth});
        made.text.reserve(object->second.bytes);
        append(made.text, *object);
    }
    return all;
}

} // namespace vantro::platform
