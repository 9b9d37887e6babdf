// For tests of what is shown: with the locale that the tool sets.
#include <gtest/gtest.h>

#include "tools/vantroctl/text/display_text.h"

int main(int argc, char **argv) {
    vantro::ctl::use_display_locale();
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
