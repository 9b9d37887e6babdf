/**
 * @file
 * The library for C++20: owners, results that carry their error, lists that page by themselves, and
 * events. Headers only: everything calls the C functions of player.h and extras.h, whose texts say
 * what blocks, what may overlap and what each call does.
 *
 *     #include <cstdio>
 *     #include <vantro/vantro.hpp>
 *
 *     int main() {
 *         auto player = vantro::Player::connect("main");
 *         if (!player) {
 *             std::fprintf(stderr, "%s\n", player.failure().text);
 *             return 1;
 *         }
 *         for (const MediaNode &node : player->browse(1)) {
 *             std::puts(node.name ? node.name : "");
 *         }
 *         player->play().or_throw();
 *         for (const vantro::Event &event : player->follow()) {
 *             if (const auto *position = event.as<vantro::PositionEvent>()) {
 *                 std::printf("%lld ms\n", static_cast<long long>(position->position.count()));
 *             }
 *         }
 *     }
 *
 * Errors. What can fail returns a Result: a value, or why there is none (result.hpp). Nothing
 * throws but Result::or_throw(), and nothing ends the process beyond what the C functions do.
 *
 * Ownership. Lists, tracks and metadata own their records and free them; records inside are the C
 * ones of records.h, whose strings may be NULL (text() makes a string_view of any). Player owns its
 * handle. All of these can be moved and not copied. An Event lives until the next one.
 *
 * Cost. No call allocates beyond what the C function does; ranges hold one page at a time.
 */
#ifndef VANTRO_VANTRO_HPP
#define VANTRO_VANTRO_HPP

#include <vantro/cpp/events.hpp>
#include <vantro/cpp/player.hpp>
#include <vantro/cpp/records.hpp>
#include <vantro/cpp/result.hpp>
#include <vantro/version.h>

#endif
