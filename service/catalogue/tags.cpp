#include "service/catalogue/tags.h"

#include <algorithm>
#include <exception>

#include <taglib/audioproperties.h>
#include <taglib/fileref.h>
#include <taglib/tag.h>
#include <taglib/tfilestream.h>
#include <taglib/tpropertymap.h>

#include "service/catalogue/text.h"

namespace vantro {

namespace {

std::string text_of(const TagLib::String &value) {
    return clean_text(value.to8Bit(true), tag_text_max);
}

// Tags hold any number that their writer liked; below zero means nothing here.
int32_t number_of(unsigned value) {
    return value <= INT32_MAX ? static_cast<int32_t>(value) : 0;
}

// "2" and "2/3" alike.
int32_t disc_of(const TagLib::PropertyMap &properties) {
    const auto found = properties.find("DISCNUMBER");
    if (found == properties.end() || found->second.isEmpty())
        return 0;
    const int value = found->second.front().split("/").front().toInt();
    return value > 0 ? value : 0;
}

// Without a name a file is told by what it holds: many a collection has one kind of file under the
// name of another.
class Nameless : public TagLib::FileStream {
  public:
    explicit Nameless(const char *path) : FileStream(path, true) {}
    TagLib::FileName name() const override { return ""; }
};

// Returns false where the stream holds nothing that lasts.
bool read_stream(TagLib::IOStream &stream, Track &track) {
    const TagLib::FileRef file(&stream, true, TagLib::AudioProperties::Average);
    const TagLib::AudioProperties *audio = file.isNull() ? nullptr : file.audioProperties();
    if (audio == nullptr || audio->lengthInMilliseconds() <= 0)
        return false;
    track.duration_ms = audio->lengthInMilliseconds();
    if (const TagLib::Tag *tag = file.tag()) {
        track.title = text_of(tag->title());
        track.artist = text_of(tag->artist());
        track.album = text_of(tag->album());
        track.genre = text_of(tag->genre());
        if (tag->year() != 0)
            track.year = std::to_string(tag->year());
        track.number = number_of(tag->track());
        track.disc = disc_of(file.file()->properties());
    }
    return true;
}

} // namespace

bool has_audio_name(const std::string &path) {
    const std::size_t dot = path.rfind('.');
    if (dot == std::string::npos)
        return false;
    std::string ending = path.substr(dot + 1);
    std::transform(ending.begin(), ending.end(), ending.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    static const TagLib::StringList known = TagLib::FileRef::defaultFileExtensions();
    return known.contains(TagLib::String(ending, TagLib::String::Latin1));
}

const char *read_tags(const std::string &path, Track &track) {
    try {
        TagLib::FileStream named(path.c_str(), true);
        if (!named.isOpen())
            return "cannot be opened";
        if (read_stream(named, track))
            return nullptr;
        Nameless nameless(path.c_str());
        return read_stream(nameless, track) ? nullptr : "is not audio that can be read";
    } catch (const std::exception &) {
        // The tag readers allocate what a file's own length fields ask for.
        return "is damaged";
    }
}

} // namespace vantro
