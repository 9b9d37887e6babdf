#include "events/state_attributes.h"

#include <array>
#include <cstddef>

#include "events/attribute_parsing.h"
#include "events/log.h"

namespace vantro::events {

namespace {

// The words that an attribute of "state" may have, and their values.
struct Word {
    const char *text;
    int32_t value;
};
constexpr std::array states{
    Word{"playing", VANTRO_STATE_PLAYING},
    Word{"stopped", VANTRO_STATE_STOPPED},
    Word{"idle", VANTRO_STATE_IDLE},
    Word{"paused", VANTRO_STATE_PAUSED},
};
constexpr std::array repeat_modes{
    Word{"off", VANTRO_REPEAT_OFF},
    Word{"one", VANTRO_REPEAT_ONE},
    Word{"all", VANTRO_REPEAT_ALL},
};
constexpr std::array shuffle_modes{
    Word{"off", VANTRO_SHUFFLE_OFF},
    Word{"on", VANTRO_SHUFFLE_ON},
};

// @return whether the text is one of the words. If not, `value` is unchanged.
template <size_t count>
bool look_up(const std::array<Word, count> &words, const char *text, int32_t &value) {
    for (const Word &word : words) {
        if (same_word(word.text, text)) {
            value = word.value;
            return true;
        }
    }
    return false;
}

} // namespace

int32_t apply_state(const mosk_dict *dict, VantroEvent &event) {
    int32_t state = event.state;
    if (const char *rate = mosk_dict_find_value(dict, "rate")) {
        event.rate = rate_of(rate);
    }
    if (const char *repeat = mosk_dict_find_value(dict, "repeat")) {
        if (!look_up(repeat_modes, repeat, event.repeat)) {
            msglog(LOG_SEVERITY_WARNING, "Invalid repeat mode %s", repeat);
        }
    }
    if (const char *shuffle = mosk_dict_find_value(dict, "shuffle")) {
        if (!look_up(shuffle_modes, shuffle, event.shuffle)) {
            msglog(LOG_SEVERITY_WARNING, "Invalid shuffle mode %s", shuffle);
        }
    }
    if (const char *status = mosk_dict_find_value(dict, "status")) {
        if (!look_up(states, status, state)) {
            msglog(LOG_SEVERITY_WARNING, "Ignoring unknown state");
        }
    }
    return state;
}

} // namespace vantro::events
