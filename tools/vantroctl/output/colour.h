// Colours: the current track is bold, errors are red.
#ifndef VANTRO_TOOLS_VANTROCTL_OUTPUT_COLOUR_H
#define VANTRO_TOOLS_VANTROCTL_OUTPUT_COLOUR_H

#include <optional>
#include <string>
#include <string_view>

namespace vantro::ctl {

enum class ColourMode {
    automatic, // On a terminal that has colours, unless NO_COLOR is set and not empty.
    always,
    never
};

// "auto", "always" or "never". @return nothing for any other text.
std::optional<ColourMode> parse_colour_mode(std::string_view text);

// Sets the mode for the rest of the run. Before that there are no colours.
void set_colour_mode(ColourMode mode);

enum class Ink { plain, playing, wrong };

// Whole lines, or a part of one, in that ink; unchanged if colours are off.
// @param descriptor that they are written to.
std::string painted(Ink ink, std::string_view lines, int descriptor = 1);

// The text without colours, for measuring its width.
std::string unpainted(std::string_view text);

} // namespace vantro::ctl

#endif
