#include "platform/linux/picture.h"

#include <vantro/platform/limits.h>

#include "platform/linux/change_line.h"

namespace vantro::platform {

namespace {

constexpr std::string_view object_start = "#@";

/** Takes the next line off a text, its newline included. Empty where the text ends without one. */
std::string_view take_line(std::string_view &text) {
    const std::string_view line = text.substr(0, text.find('\n') + 1);
    text.remove_prefix(line.size());
    return line;
}

std::string_view without_newline(std::string_view line) {
    return line.substr(0, line.empty() ? 0 : line.size() - 1);
}

} // namespace

Picture::Outcome Picture::apply(std::string_view change) {
    const ObjectLine head = parse_object_line(without_newline(take_line(change)));
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

    /* What changes is made ready first, so that nothing can fail once the object is touched. */
    const bool keeps = found != objects_.end() && head.result != KIVO_OBJECT_TRUNCATED;
    Lines changed;
    while (!change.empty()) {
        const std::string_view line = take_line(change);
        const AttributeLine attribute = parse_attribute_line(without_newline(line));
        if (attribute.name.empty()) {
            return Outcome::malformed;
        }
        changed[std::string(attribute.name)] = attribute.is_set ? line : std::string_view();
    }
    size_t bytes = keeps ? bytes_before : object_start.size() + head.name.size() + 1;
    for (const auto &[name, line] : changed) {
        bytes += line.size();
        if (keeps) {
            const auto replaced = found->second.lines.find(name);
            bytes -= replaced == found->second.lines.end() ? 0 : replaced->second.size();
        }
    }
    if (bytes > OBJECT_CHANGE_MAX) {
        return Outcome::object_too_long;
    }
    if (bytes_ - bytes_before + bytes > OBJECT_TOTAL_MAX) {
        return Outcome::all_too_long;
    }

    Object &object = found == objects_.end() ? objects_[std::string(head.name)] : found->second;
    if (!keeps) {
        object.lines.clear();
    }
    while (!changed.empty()) {
        Lines::node_type node = changed.extract(changed.begin());
        const bool deleted = node.mapped().empty();
        const auto place = object.lines.find(node.key());
        if (place != object.lines.end()) {
            place->second.swap(node.mapped());
            if (deleted) {
                object.lines.erase(place);
            }
        } else if (!deleted) {
            object.lines.insert(std::move(node));
        }
    }
    object.bytes = bytes;
    bytes_ += bytes - bytes_before;
    return Outcome::applied;
}

bool Picture::load(std::string_view snapshot, std::string_view object) {
    objects_.clear();
    bytes_ = 0;
    while (!snapshot.empty()) {
        if (!snapshot.starts_with(object_start)) {
            return false;
        }
        /* An attribute's line cannot begin so: the sign would be escaped. */
        const size_t next = snapshot.find("\n#@");
        const std::string_view text =
            snapshot.substr(0, next == snapshot.npos ? snapshot.size() : next + 1);
        snapshot.remove_prefix(text.size());
        const ObjectLine head = parse_object_line(text.substr(0, text.find('\n')));
        if (head.result != KIVO_OBJECT_TRUNCATED) {
            return false;
        }
        if ((object.empty() || head.name == object) && apply(text) != Outcome::applied) {
            return false;
        }
    }
    return true;
}

void Picture::append(std::string &text, const Objects::value_type &object) {
    text.append(object_start).append(object.first).append("\n");
    for (const auto &[name, line] : object.second.lines) {
        text.append(line);
    }
}

void Picture::append_all(std::string &text) const {
    for (const auto &object : objects_) {
        append(text, object);
    }
}

std::vector<Picture::Text> Picture::texts() const {
    std::vector<Text> all;
    all.reserve(objects_.size());
    for (const auto &object : objects_) {
        Text &made = all.emplace_back(Text{object.first, {}});
        made.text.reserve(object.second.bytes);
        append(made.text, object);
    }
    return all;
}

} // namespace vantro::platform
