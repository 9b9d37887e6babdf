// Any bytes as a change text: the parser ends, stays inside the text, and leaves a line that it
// cannot parse as it was. What it finds is written again as a text with the same meaning.
//
// An input is the text; what follows its first NUL is ignored.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <vantro/platform/change.h>

#include "fuzz/support.h"
#include "platform/portable/object_state.h"

namespace {

using vantro::fuzz::require;

// Everything that a text says, one entry for each line; and the text written again from it.
struct Reading {
    std::vector<std::string> lines;
    std::string written;
    int last = 0;

    explicit Reading(std::string text) {
        const std::string before = text;
        std::vector<char> memory(8 * text.size() + 64);
        struct kivo_writer writer;
        kivo_writer_init(&writer, memory.data(), memory.size());
        struct kivo_record record = {};
        for (char *cursor = text.data();;) {
            const char *const line = cursor;
            last = kivoparse(&cursor, nullptr, nullptr, &record, 0);
            const auto at = static_cast<size_t>(line - text.data());
            require(cursor >= line && cursor <= text.data() + text.size());
            if (last <= KIVO_END) {
                require(cursor == line && std::strcmp(line, before.c_str() + at) == 0);
                break;
            }
            require(cursor > line && before[static_cast<size_t>(cursor - text.data()) - 1] == '\n');
            std::string said = std::to_string(last) + "|";
            if (last == KIVO_ATTRIBUTE) {
                kivo_write_attribute(&writer, record.attribute, record.encoding, record.value);
                said += std::string(record.attribute) + "|" + std::to_string(record.encoding) +
                        "|" + record.value;
            } else if (last == KIVO_ATTRIBUTE_DELETED) {
                kivo_write_attribute_deleted(&writer, record.attribute);
                said += record.attribute;
            } else {
                kivo_write_object(&writer, static_cast<kivo_result>(last), record.object);
                said += record.object;
            }
            lines.push_back(std::move(said));
        }
        const ssize_t length = kivo_writer_finish(&writer);
        require(length >= 0);
        written.assign(memory.data(), static_cast<size_t>(length));
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t length) {
    const std::string text(reinterpret_cast<const char *>(data), length);
    const Reading first(text.c_str());
    const Reading second(first.written);
    require(second.last == KIVO_END && second.lines == first.lines);
    require(Reading(second.written).written == second.written);

    // The same bytes in a ring that an untrusted program wrote.
    vantro::platform::ObjectState state;
    state.load(text);
    std::string snapshot;
    state.append_all(snapshot);
    state.apply(text, length);
    snapshot.clear();
    state.append_all(snapshot);
    vantro::platform::ObjectState again;
    require(again.load(snapshot) && again.bytes() == state.bytes());
    size_t bytes = 0;
    for (const auto &object : state.texts()) {
        bytes += object.text.size();
    }
    require(bytes == state.bytes());
    std::string same;
    again.append_all(same);
    require(same == snapshot);
    return 0;
}
