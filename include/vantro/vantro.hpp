/**
 * @file
 * The library for C++20: owning types, results that carry their error, lists that fetch their
 * pages, and events. Headers only: everything calls the C functions of player.h and extras.h, whose
 * texts document what each call does, whether it blocks, and which calls may overlap.
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
 * Errors. A function that can fail returns a Result: a value, or the failure for which there is
 * none (result.hpp). Only Result::or_throw() throws, and the process ends only in the cases of the
 * C functions.
 *
 * Ownership. Lists, tracks and metadata own their records and free them; records inside are the C
 * ones of records.h, whose strings may be NULL (text() makes a string_view of any). Player owns its
 * handle. All of these can be moved, but not copied. An Event lives until the next one.
 *
 * Cost. No call allocates more than its C function; ranges hold one page at a time.
 */
#ifndef VANTRO_VANTRO_HPP
#define VANTRO_VANTRO_HPP

#include <vantro/cpp/events.hpp>
#include <vantro/cpp/player.hpp>
#include <vantro/cpp/records.hpp>
#include <vantro/cpp/result.hpp>
#include <vantro/version.h>

#endif
