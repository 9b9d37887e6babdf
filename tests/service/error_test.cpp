// How errors of the service are distinguished, and what clients and the log get.
#include <cerrno>
#include <new>
#include <system_error>

#include <gtest/gtest.h>

#include <vantro/catalogue.h>

#include "service/error.h"

namespace vantro::service {
namespace {

constexpr auto catalogue = Error::Origin::catalogue;
constexpr auto music = Error::Origin::music;

TEST(Errors, AreToldApart) {
    const std::system_error full(ENOSPC, std::generic_category(), "a cover");
    const struct {
        Error error;
        bool want, passing, damage;
        int32_t word, track;
        std::string log;
    } rows[] = {
        {Error::damage(catalogue, "is damaged"), false, false, true, EIO, VANTRO_ERROR_DAMAGED,
         "the catalogue is damaged"},
        {Error::failed(catalogue, ENOMEM, "cannot be used"), true, true, false, EIO,
         VANTRO_ERROR_UNREADABLE, "the catalogue cannot be used: Cannot allocate memory"},
        {error_of(std::bad_alloc()), true, true, false, ENOMEM, VANTRO_ERROR_UNREADABLE,
         "std::bad_alloc"},
        {Error(music, EMFILE), true, true, false, EIO, VANTRO_ERROR_UNREADABLE,
         "Too many open files"},
        {Error(music, ESTALE), false, true, false, EIO, VANTRO_ERROR_UNREADABLE,
         "Stale file handle"},
        {Error(music, ENOTDIR), false, false, false, EIO, VANTRO_ERROR_GONE, "Not a directory"},
        {error_of(full), false, false, false, EIO, VANTRO_ERROR_UNREADABLE,
         "a cover: No space left on device"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(row.error.is_want(), row.want) << row.log;
        EXPECT_EQ(row.error.is_passing(), row.passing) << row.log;
        EXPECT_EQ(row.error.is_damage(), row.damage) << row.log;
        EXPECT_EQ(result_word(row.error), row.word) << row.log;
        EXPECT_EQ(track_error(row.error), row.track) << row.log;
        EXPECT_EQ(log_text(row.error), row.log);
    }
}

} // namespace
} // namespace vantro::service
