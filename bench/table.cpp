#include "bench/table.h"

#include <cstdio>

#include <fmt/format.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

namespace vantro::bench {

void print_table(const std::vector<Row> &rows) {
    fmt::print("{:<26} {:>6} {:>12} {:>12} {:>12} {:>15}  {}\n", "name", "unit", "median", "p99",
               "floor_ratio", "server_threads", "note");
    for (const Row &row : rows) {
        fmt::print("{:<26} {:>6} {:>12.2f} {:>12.2f} {:>12} {:>15}  {}\n", row.name, row.unit,
                   row.median, row.p99,
                   row.floor_ratio ? fmt::format("{:.3f}", *row.floor_ratio) : "-",
                   row.server_threads ? fmt::to_string(row.server_threads) : "-", row.note);
    }
    std::fflush(stdout);
}

bool write_json(const std::vector<Row> &rows, const std::string &path) {
    rapidjson::StringBuffer text;
    rapidjson::PrettyWriter<rapidjson::StringBuffer> json(text);
    json.SetMaxDecimalPlaces(4);
    json.StartArray();
    for (const Row &row : rows) {
        json.StartObject();
        json.Key("name");
        json.String(row.name.c_str());
        json.Key("unit");
        json.String(row.unit.c_str());
        json.Key("median");
        json.Double(row.median);
        json.Key("p99");
        json.Double(row.p99);
        json.Key("floor_ratio");
        if (row.floor_ratio) {
            json.Double(*row.floor_ratio);
        } else {
            json.Null();
        }
        json.Key("server_threads");
        json.Int(row.server_threads);
        if (row.tracks) {
            json.Key("tracks");
            json.Int(row.tracks);
        }
        if (row.copy_ratio) {
            json.Key("copy_ratio");
            json.Double(*row.copy_ratio);
        }
        if (row.ratio) {
            json.Key("ratio");
            json.Double(*row.ratio);
        }
        if (row.query) {
            json.Key("query");
            json.Double(*row.query);
        }
        if (row.unpack) {
            json.Key("unpack");
            json.Double(*row.unpack);
        }
        json.EndObject();
    }
    json.EndArray();

    std::FILE *file = std::fopen(path.c_str(), "we");
    if (!file) {
        return false;
    }
    const bool written = std::fprintf(file, "%s\n", text.GetString()) >= 0;
    return (std::fclose(file) == 0) && written;
}

} // namespace vantro::bench
