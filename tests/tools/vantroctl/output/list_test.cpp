#include <cmath>

#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <vantro/catalogue.h>
#include <vantro/player.h>

#include "tools/vantroctl/output/json_output.h"
#include "tools/vantroctl/output/node_view.h"
#include "tools/vantroctl/text/display_text.h"
#include "tools/vantroctl/text/node_ref.h"

namespace vantro::ctl {
namespace {

constexpr const char *kanji = "\xE6\xBC\xA2\xE5\xAD\x97";
constexpr const char *arabic = "\xD8\xB9\xD9\x88\xD8\xAF";
constexpr const char *dots = "\xE2\x80\xA6";

TEST(NodeRef, IsOneHarmlessWordAndNamesTheSameNodeAgain) {
    const struct {
        int32_t source;
        std::string id, text;
    } rows[] = {
        {1, "", "1:"},
        {7, "album/a-b_c.9", "7:album/a-b_c.9"},
        {1, "2:x", "1:2:x"},
        {-3, "x", "-3:x"},
        {1, "a b'c\"$(d)%41", "1:a%20b%27c%22%24%28d%29%2541"},
        {1, std::string("folder/") + kanji + "/" + arabic,
         std::string("1:folder/") + kanji + "/" + arabic},
        {1, "x\x1B[2J\n", "1:x%1B%5B2J%0A"},
        {1, "\xFF\xC3", "1:%FF%C3"},
        {1, "\xE2\x80\xAE", "1:%E2%80%AE"}, // right-to-left override
    };
    for (const auto &row : rows) {
        EXPECT_EQ(ref_text(row.source, row.id), row.text);
        const NodeRef ref = parse_ref(row.text);
        EXPECT_EQ(ref.source, row.source) << row.text;
        EXPECT_EQ(ref.id, row.id) << row.text;
    }
    for (const char *alone : {"", "album/7", "album:7", ":x", "1", "99999999999:x", "1x:y"}) {
        EXPECT_FALSE(parse_ref(alone).source) << alone;
        EXPECT_EQ(parse_ref(alone).id, alone);
    }
    EXPECT_EQ(parse_ref("1:%zz%4%").id, "%zz%4%");
    EXPECT_EQ(parse_source("12:"), 12);
    for (const char *bad : {"", ":", "x", "1:x", "1 ", "2147483648"}) {
        EXPECT_FALSE(parse_source(bad)) << bad;
    }
}

const std::vector<Node> nodes = {
    {1, "artists", "Artists", VANTRO_NODE_MENU, 2},
    {1, "album/0123456789", std::string(kanji) + " " + arabic + "\x1B[2J and a long tail",
     VANTRO_NODE_ALBUM, 12},
    {1, "", "gone", VANTRO_NODE_SONG, 0},
    {1, "x", "", 77, 0},
    {1, "s1", "One", VANTRO_NODE_SONG, 0, "Anna\x1B", "Al\tbum", 205'999},
};

std::vector<Table::Row> rows_of(const std::vector<Node> &list, std::optional<int> width) {
    std::vector<Table::Row> rows;
    rows.reserve(list.size());
    for (const Node &node : list) {
        rows.push_back(node_row(node, width));
    }
    return rows;
}

const std::string shown = std::string(kanji) + " " + arabic + "\xEF\xBF\xBD[2J and a long tail";

TEST(Table, TabsForProgramsAndColumnsForPeople) {
    EXPECT_EQ(node_table(std::nullopt).lines(rows_of(nodes, std::nullopt)),
              "1:artists\tmenu\t2\tArtists\t\t\t\n1:album/0123456789\talbum\t12\t" + shown +
                  "\t\t\t\n\tsong\t0\tgone\t\t\t\n1:x\tunknown\t0\t\t\t\t\n"
                  "1:s1\tsong\t0\tOne\tAnna\xEF\xBF\xBD\tAl bum\t3:25\n");
    EXPECT_EQ(track_table(80).lines({track_row(nodes[4], 1, true, 80)}),
              "   NO  NODE  LENGTH  NAME\n*   2  1:s1    3:25  One - Anna\xEF\xBF\xBD - Al bum\n");
    EXPECT_EQ(track_table(std::nullopt).lines({track_row(nodes[4], 1, false, std::nullopt)}),
              "\t2\t1:s1\tOne\tAnna\xEF\xBF\xBD\tAl bum\t3:25\n");
    Table table = node_table(80);
    EXPECT_EQ(table.lines(rows_of(nodes, 80)), "NODE                TYPE     COUNT  NAME\n"
                                               "1:artists           menu         2  Artists\n"
                                               "1:album/0123456789  album       12  " +
                                                   shown +
                                                   "\n"
                                                   "                    song         0  gone\n"
                                                   "1:x                 unknown      0  \n"
                                                   "1:s1                song      3:25  "
                                                   "One - Anna\xEF\xBF\xBD - Al bum\n");
    EXPECT_EQ(table.lines({{"1:y", "menu", "1", "Y"}}), "1:y                 menu         1  Y\n");
}

TEST(Table, WhatIsPastedStaysWholeAtAnyWidth) {
    const std::string cut = std::string(kanji) + " " + arabic + "\xEF\xBF\xBD[2J an" + dots;
    const std::string album = node_table(36).lines(rows_of({nodes[1]}, 80));
    EXPECT_EQ(album, "NODE                NAME\n1:album/0123456789  " + cut + "\n");
    EXPECT_EQ(node_table(30).lines(rows_of({nodes[1]}, 80)),
              "TYPE   COUNT  NAME\nalbum     12  " + cut + "\n  1:album/0123456789\n");
    for (int width = 1; width < 120; ++width) {
        std::string text =
            node_table(width).lines(rows_of(nodes, width)) + tree_line(nodes[1], 3, width);
        for (size_t end = 0; (end = text.find('\n')) != std::string::npos;) {
            const std::string line = text.substr(0, end);
            if (line.find(':') == std::string::npos || width >= 40) {
                EXPECT_LE(display_width(line), width) << line;
            }
            text.erase(0, end + 1);
        }
    }
    Table table = node_table(50); // narrow rows set the widths, then a wider one comes
    table.lines({{"1:y", "menu", "1", "Y"}});
    EXPECT_EQ(table.lines({{"1:" + std::string(40, 'y'), "menu", "1", "A name of some length"}}),
              "1:" + std::string(40, 'y') + "  menu      1\n  A name of some length\n");
}

TEST(NodeView, ValuesAreRawForProgramsAndReadableForPeople) {
    const Values values = {{"title", "A\tB"},
                           {"bpm", std::nullopt},
                           {"duration", "205999"},
                           {"bit_rate", "320"},
                           {"lyrics", "one two three\nfour\x1B"}};
    EXPECT_EQ(render_values(values, std::nullopt), "title: A B\nbpm:\nduration: 205999\n"
                                                   "bit_rate: 320\nlyrics: one two three four"
                                                   "\xEF\xBF\xBD\n");
    EXPECT_EQ(render_values(values, 40), "title     A B\nbpm       -\nduration  3:25\n"
                                         "bit_rate  320 kbit/s\nlyrics    one two three\n"
                                         "          four\xEF\xBF\xBD\n");
    EXPECT_EQ(render_values({values[4]}, 12), "lyrics\n  one two\n  three\n  four\xEF\xBF\xBD\n");
    EXPECT_EQ(render_values({{"duration", "-1"}, {"size", "9x"}}, 40),
              "duration  -1\nsize      9x\n");
}

TEST(JsonText, IsOneValidObjectWhateverTheTagsHold) {
    PlayerStatus status{
        {VANTRO_STATE_PLAYING, 1.1f, 1, 1}, "main", 30000, TrackStatus{}, SessionStatus{7, 1, 12}};
    status.track->index = 2;
    status.track->title = "A \"title\"\n";
    status.track->artist = "\xFF";
    status.track->node_id = "a b";
    status.track->source_id = 1;
    EXPECT_EQ(json_status(status),
              "{\"ok\":true,\"player\":\"main\",\"command\":\"status\",\"state\":\"playing\","
              "\"rate\":1.1,\"repeat\":\"all\",\"shuffle\":true,\"position_ms\":30000,"
              "\"track\":{\"index\":2,\"title\":\"A \\\"title\\\"\\n\",\"artist\":\"\xEF\xBF\xBD\","
              "\"album\":null,\"genre\":null,\"year\":null,\"disc\":0,\"number\":0,"
              "\"duration_ms\":0,\"node\":\"1:a%20b\",\"node_id\":\"a b\",\"node_name\":null,"
              "\"source_id\":1},\"session\":{\"id\":7,\"type\":1,\"length\":12}}\n");
    status.track.reset();
    status.session.reset();
    status.rate = NAN;
    EXPECT_EQ(json_status(status),
              "{\"ok\":true,\"player\":\"main\",\"command\":\"status\",\"state\":\"playing\","
              "\"rate\":null,\"repeat\":\"all\",\"shuffle\":true,\"position_ms\":30000,"
              "\"track\":null,\"session\":null}\n");

    EXPECT_EQ(json_sources("p", {{1, "u", "", 1, 2, 0x8000000000000005}}),
              "{\"ok\":true,\"player\":\"p\",\"command\":\"sources\",\"sources\":[{\"node\":\"1:\","
              "\"id\":1,\"uid\":\"u\",\"name\":null,\"type\":\"directory\",\"status\":\"ready\","
              "\"capabilities\":[\"browse\",\"metadata\"]}]}\n");
    Node top = nodes[0];
    top.nodes = {nodes[2]};
    const std::string gone = "{\"node\":null,\"source_id\":1,\"id\":\"\",\"name\":\"gone\","
                             "\"type\":\"song\",\"count\":0}";
    EXPECT_NE(json_nodes("p", "browse", {nodes[4]})
                  .find("\"count\":0,\"artist\":\"Anna\\u001B\",\"album\":\"Al\\tbum\","
                        "\"duration_ms\":205999}"),
              std::string::npos);
    EXPECT_EQ(json_nodes("p", "browse", {top}),
              "{\"ok\":true,\"player\":\"p\",\"command\":\"browse\",\"nodes\":[{\"node\":"
              "\"1:artists\",\"source_id\":1,\"id\":\"artists\",\"name\":\"Artists\",\"type\":"
              "\"menu\",\"count\":2,\"nodes\":[" +
                  gone + "]}]}\n");
    EXPECT_EQ(
        json_tracks("p", {7, 2, 9}, 8, 8, {nodes[2]}),
        "{\"ok\":true,\"player\":\"p\",\"command\":\"tracks\",\"session\":{\"id\":7,\"type\":2,"
        "\"length\":9},\"current\":8,\"tracks\":[{\"index\":8," +
            gone.substr(1) + "]}\n");
    // Characters that drive a terminal, or hide in a text, are escaped: DEL, NEL, CSI, an override
    // of the writing direction, an isolate, a byte order mark, a line separator, a tag beyond 16
    // bits.
    const std::string unsafe =
        "\x7F\xC2\x85\xC2\x9B\xE2\x80\xAE\xE2\x81\xA6\xEF\xBB\xBF\xE2\x80\xA8"
        "\xF3\xA0\x81\x81" +
        std::string(kanji);
    const std::string line = json_values("p", {1, "x"}, {{unsafe, unsafe}});
    const std::string escaped =
        "\"\\u007F\\u0085\\u009B\\u202E\\u2066\\uFEFF\\u2028\\uDB40\\uDC41" + std::string(kanji) +
        '"';
    EXPECT_NE(line.find("\"values\":{" + escaped + ":" + escaped + "}"), std::string::npos) << line;
    rapidjson::Document value;
    ASSERT_FALSE(value.Parse(line.c_str()).HasParseError()) << line;
    EXPECT_EQ(value["values"][unsafe.c_str()].GetString(), unsafe);
    EXPECT_EQ(json_values("p", {1, "x"}, {{"k\xFF", "v"}, {"n", std::nullopt}}),
              "{\"ok\":true,\"player\":\"p\",\"command\":\"info\",\"node\":\"1:x\",\"source_id\":1,"
              "\"id\":\"x\",\"values\":{\"k\xEF\xBF\xBD\":\"v\",\"n\":null}}\n");
}

} // namespace
} // namespace vantro::ctl
