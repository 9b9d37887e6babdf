#include "service/catalogue/files/xspf_file.h"

#include <algorithm>
#include <charconv>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include <expat.h>
#include <fmt/format.h>

namespace vantro::service::catalogue {

namespace {

// Longest location, in bytes: a path of the greatest length with each byte of it encoded.
constexpr size_t location_max = 3 * 4096;

// Locations are URIs: a relative one is a path with %XX for bytes that URIs cannot contain.
// Locations with a scheme are not changed, since resolve_entry() reads file URIs.
std::string entry_of_location(std::string_view location) {
    constexpr std::string_view space = " \t\r\n";
    location.remove_prefix(std::min(location.size(), location.find_first_not_of(space)));
    location = location.substr(0, location.find_last_not_of(space) + 1);
    if (location.find("://") != std::string_view::npos) {
        return std::string(location);
    }
    if (location.substr(0, 6) == "file:/") { // the short form of file:///
        return "file://" + std::string(location.substr(5));
    }
    std::string path;
    for (size_t at = 0; at < location.size(); ++at) {
        unsigned byte = 0;
        const char *const digits = location.data() + at + 1;
        if (location[at] == '%' && at + 2 < location.size() &&
            std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2) {
            path += static_cast<char>(byte);
            at += 2;
        } else {
            path += location[at];
        }
    }
    return path;
}

// The parser's callbacks. They must not throw, since the parser is C.
class Reader {
  public:
    Reader(XML_Parser parser, size_t most, std::vector<std::string> &entries)
        : parser_(parser), most_(most), entries_(entries) {
        XML_SetUserData(parser, this);
        XML_SetElementHandler(parser, begin_element, end_element);
        XML_SetCharacterDataHandler(parser, take_text);
        XML_SetEntityDeclHandler(parser, refuse_entity);
    }

    std::optional<Error> run(std::string_view bytes) {
        const XML_Status status =
            XML_Parse(parser_, bytes.data(), static_cast<int>(bytes.size()), XML_TRUE);
        if (no_memory_) {
            throw std::bad_alloc();
        }
        if (entities_) {
            return Error::damage(Error::Origin::music, "declares entities");
        }
        if (!playlist_) {
            return Error::damage(Error::Origin::music, "is not an XSPF playlist");
        }
        if (status != XML_STATUS_OK && entries_.size() < most_) {
            return Error::damage(Error::Origin::music,
                                 fmt::format("line {}: {}", XML_GetCurrentLineNumber(parser_),
                                             XML_ErrorString(XML_GetErrorCode(parser_))));
        }
        return std::nullopt;
    }

  private:
    static Reader &reader(void *data) { return *static_cast<Reader *>(data); }

    // Elements may have the prefix of a namespace. Elements of extensions with the same name are at
    // another depth.
    static void begin_element(void *data, const char *name, const char **) {
        Reader &self = reader(data);
        std::string_view local = name;
        local.remove_prefix(local.rfind(':') + 1);
        ++self.depth_;
        if (self.depth_ == 1) {
            self.playlist_ = local == "playlist";
        } else if (self.depth_ == 3) {
            self.has_location_ = false;
        }
        self.in_location_ = self.depth_ == 4 && local == "location" && !self.has_location_;
    }

    static void end_element(void *data, const char *) {
        Reader &self = reader(data);
        --self.depth_;
        if (!std::exchange(self.in_location_, false)) {
            return;
        }
        try {
            std::string entry = entry_of_location(self.text_);
            if (!entry.empty() && entry.find('\0') == std::string::npos) {
                self.entries_.push_back(std::move(entry));
                self.has_location_ = true;
            }
            self.text_.clear();
        } catch (const std::bad_alloc &) {
            self.no_memory_ = true;
        }
        if (self.no_memory_ || self.entries_.size() >= self.most_) {
            XML_StopParser(self.parser_, XML_FALSE);
        }
    }

    static void take_text(void *data, const char *text, int length) {
        Reader &self = reader(data);
        if (!self.in_location_ || self.text_.size() + static_cast<size_t>(length) > location_max) {
            return;
        }
        try {
            self.text_.append(text, static_cast<size_t>(length));
        } catch (const std::bad_alloc &) {
            self.no_memory_ = true;
            XML_StopParser(self.parser_, XML_FALSE);
        }
    }

    static void refuse_entity(void *data, const char *, int, const char *, int, const char *,
                              const char *, const char *, const char *) {
        Reader &self = reader(data);
        self.entities_ = true;
        XML_StopParser(self.parser_, XML_FALSE);
    }

    const XML_Parser parser_;
    const size_t most_;
    std::vector<std::string> &entries_;
    int depth_ = 0; // playlist, trackList, track, location
    bool playlist_ = false;
    bool has_location_ = false;
    bool in_location_ = false;
    bool entities_ = false;
    bool no_memory_ = false;
    std::string text_;
};

struct ParserCloser {
    void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
};

} // namespace

std::optional<Error> parse_xspf(std::string_view bytes, size_t most,
                                std::vector<std::string> &entries) {
    const std::unique_ptr<std::remove_pointer_t<XML_Parser>, ParserCloser> parser(
        XML_ParserCreate(nullptr));
    if (!parser) {
        throw std::bad_alloc();
    }
    return Reader(parser.get(), most, entries).run(bytes);
}

} // namespace vantro::service::catalogue
