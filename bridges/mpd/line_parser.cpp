#include "bridges/mpd/line_parser.h"

#include "bridges/mpd/ack.h"

namespace vantro::mpd {
namespace {

bool is_blank(char c) {
    return c == ' ' || c == '\t';
}

// Removes one word from the front of the line and returns it.
std::string take_quoted(std::string_view &line) {
    std::string word;
    for (size_t at = 1; at < line.size(); ++at) {
        char c = line[at];
        if (c == '"') {
            line.remove_prefix(at + 1);
            if (!line.empty() && !is_blank(line.front())) {
                throw Ack(AckCode::argument, "a blank is missing after a closing quotation mark");
            }
            return word;
        }
        if (c == '\\') {
            if (++at == line.size()) {
                break;
            }
            c = line[at];
        }
        word += c;
    }
    throw Ack(AckCode::argument, "a closing quotation mark is missing");
}

std::string take_plain(std::string_view &line) {
    size_t length = 0;
    for (; length < line.size() && !is_blank(line[length]); ++length) {
        if (line[length] == '"') {
            throw Ack(AckCode::argument, "a quotation mark within a word");
        }
    }
    std::string word(line.substr(0, length));
    line.remove_prefix(length);
    return word;
}

} // namespace

std::vector<std::string> parse_line(std::string_view line) {
    if (line.find('\0') != std::string_view::npos) {
        throw Ack(AckCode::argument, "a NUL in the line");
    }
    std::vector<std::string> words;
    while (true) {
        while (!line.empty() && is_blank(line.front())) {
            line.remove_prefix(1);
        }
        if (line.empty()) {
            break;
        }
        if (words.size() == words_max) {
            throw Ack(AckCode::argument, "too many arguments");
        }
        words.push_back(line.front() == '"' ? take_quoted(line) : take_plain(line));
    }
    if (words.empty()) {
        throw Ack(AckCode::unknown, "no command given");
    }
    return words;
}

} // namespace vantro::mpd
