#include "events/replacement.h"

#include <utility>

namespace vantro::events {

ObjectEntry *entry_for(EventQueue &queue, std::string_view name) {
    if (name == "status" || name == "track") {
        if (ObjectEntry *entry = take_dirty(queue, name)) {
            mosk_dict_destroy(std::exchange(entry->dict, nullptr));
            return entry;
        }
    }
    ObjectEntry *entry = take_clean(queue, name);
    return entry ? entry : new_entry(name);
}

} // namespace vantro::events
