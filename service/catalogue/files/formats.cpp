#include "service/catalogue/files/formats.h"

#include <taglib/aifffile.h>
#include <taglib/apefile.h>
#include <taglib/apetag.h>
#include <taglib/asffile.h>
#include <taglib/asfpicture.h>
#include <taglib/attachedpictureframe.h>
#include <taglib/flacfile.h>
#include <taglib/id3v1tag.h>
#include <taglib/id3v2tag.h>
#include <taglib/infotag.h>
#include <taglib/itproperties.h>
#include <taglib/modproperties.h>
#include <taglib/mp4file.h>
#include <taglib/mpcfile.h>
#include <taglib/mpegfile.h>
#include <taglib/oggflacfile.h>
#include <taglib/opusfile.h>
#include <taglib/s3mproperties.h>
#include <taglib/speexfile.h>
#include <taglib/trueaudiofile.h>
#include <taglib/vorbisfile.h>
#include <taglib/wavfile.h>
#include <taglib/wavpackfile.h>
#include <taglib/xiphcomment.h>
#include <taglib/xmproperties.h>

namespace vantro::service::catalogue {

namespace {

template <typename Type>
const Type *as(const TagLib::File &file) {
    return dynamic_cast<const Type *>(&file);
}

std::string text_of(const TagLib::ByteVector &bytes) {
    return {bytes.data(), bytes.size()};
}

template <typename List>
std::string best_of(const List &pictures) {
    const TagLib::FLAC::Picture *best = nullptr;
    for (const TagLib::FLAC::Picture *picture : pictures) {
        if (!best || (picture->type() == TagLib::FLAC::Picture::FrontCover &&
                      best->type() != TagLib::FLAC::Picture::FrontCover)) {
            best = picture;
        }
    }
    return best ? text_of(best->data()) : "";
}

std::string in_id3(const TagLib::ID3v2::Tag *tag) {
    using Frame = TagLib::ID3v2::AttachedPictureFrame;
    const Frame *best = nullptr;
    if (tag) {
        for (const TagLib::ID3v2::Frame *each : tag->frameListMap()["APIC"]) {
            const auto *frame = dynamic_cast<const Frame *>(each);
            if (frame && (!best || (frame->type() == Frame::FrontCover &&
                                    best->type() != Frame::FrontCover))) {
                best = frame;
            }
        }
    }
    return best ? text_of(best->picture()) : "";
}

std::string in_xiph(TagLib::Tag *tag) {
    auto *comment = dynamic_cast<TagLib::Ogg::XiphComment *>(tag);
    return comment ? best_of(comment->pictureList()) : "";
}

std::string in_mp4(const TagLib::MP4::Tag *tag) {
    if (!tag || !tag->contains("covr")) {
        return "";
    }
    const TagLib::MP4::CoverArtList covers = tag->item("covr").toCoverArtList();
    return covers.isEmpty() ? "" : text_of(covers.front().data());
}

std::string in_asf(TagLib::ASF::Tag *tag) {
    if (!tag) {
        return "";
    }
    const TagLib::ASF::AttributeList pictures = tag->attribute("WM/Picture");
    return pictures.isEmpty() ? "" : text_of(pictures.front().toPicture().picture());
}

// The value is a description, a NUL, and the picture.
std::string in_ape(const TagLib::APE::Tag *tag) {
    if (!tag || !tag->itemListMap().contains("COVER ART (FRONT)")) {
        return "";
    }
    const std::string data = text_of(tag->itemListMap()["COVER ART (FRONT)"].binaryData());
    const size_t end = data.find('\0');
    return end == std::string::npos ? "" : data.substr(end + 1);
}

// A template, since properties() of the kinds of tags is not virtual.
template <typename Tag>
void add_missing(TagLib::PropertyMap &properties, const Tag *tag) {
    if (!tag) {
        return;
    }
    for (const auto &[key, values] : tag->properties()) {
        if (!properties.contains(key)) {
            properties.insert(key, values);
        }
    }
}

void add_old_tag(TagLib::PropertyMap &properties, const TagLib::ID3v1::Tag *tag) {
    const bool named = properties.contains("TITLE") || properties.contains("ARTIST") ||
                       properties.contains("ALBUM");
    if (!named) {
        add_missing(properties, tag);
    }
}

// For formats that have an APE tag, and perhaps an ID3v1 tag.
template <typename Type>
bool take_ape(TagLib::File &file, TagLib::PropertyMap &properties) {
    auto *const typed = dynamic_cast<Type *>(&file);
    if (!typed) {
        return false;
    }
    add_missing(properties, typed->hasAPETag() ? typed->APETag() : nullptr);
    add_old_tag(properties, typed->hasID3v1Tag() ? typed->ID3v1Tag() : nullptr);
    return true;
}

int64_t module_ms(int64_t patterns, int64_t ticks_a_row, int64_t tempo) {
    constexpr int64_t rows = 64;
    // A tick takes 2.5 seconds divided by the tempo.
    return tempo > 0 ? patterns * rows * ticks_a_row * 2500 / tempo : 0;
}

} // namespace

int64_t module_ms(const TagLib::AudioProperties &audio) {
    if (const auto *mod = dynamic_cast<const TagLib::Mod::Properties *>(&audio)) {
        return module_ms(mod->lengthInPatterns(), 6, 125);
    }
    if (const auto *s3m = dynamic_cast<const TagLib::S3M::Properties *>(&audio)) {
        return module_ms(s3m->lengthInPatterns(), s3m->tempo(), s3m->bpmSpeed());
    }
    if (const auto *it = dynamic_cast<const TagLib::IT::Properties *>(&audio)) {
        return module_ms(it->lengthInPatterns(), it->tempo(), it->bpmSpeed());
    }
    if (const auto *xm = dynamic_cast<const TagLib::XM::Properties *>(&audio)) {
        return module_ms(xm->lengthInPatterns(), xm->tempo(), xm->bpmSpeed());
    }
    return 0;
}

TagLib::PropertyMap properties_of(TagLib::File &file) {
    TagLib::PropertyMap properties;
    if (auto *mpeg = dynamic_cast<TagLib::MPEG::File *>(&file)) {
        add_missing(properties, mpeg->hasID3v2Tag() ? mpeg->ID3v2Tag() : nullptr);
        take_ape<TagLib::MPEG::File>(file, properties);
    } else if (auto *flac = dynamic_cast<TagLib::FLAC::File *>(&file)) {
        add_missing(properties, flac->hasXiphComment() ? flac->xiphComment() : nullptr);
        add_missing(properties, flac->hasID3v2Tag() ? flac->ID3v2Tag() : nullptr);
        add_old_tag(properties, flac->hasID3v1Tag() ? flac->ID3v1Tag() : nullptr);
    } else if (auto *wav = dynamic_cast<TagLib::RIFF::WAV::File *>(&file)) {
        add_missing(properties, wav->hasID3v2Tag() ? wav->ID3v2Tag() : nullptr);
        add_missing(properties, wav->hasInfoTag() ? wav->InfoTag() : nullptr);
    } else if (auto *tta = dynamic_cast<TagLib::TrueAudio::File *>(&file)) {
        add_missing(properties, tta->hasID3v2Tag() ? tta->ID3v2Tag() : nullptr);
        add_old_tag(properties, tta->hasID3v1Tag() ? tta->ID3v1Tag() : nullptr);
    } else if (!take_ape<TagLib::APE::File>(file, properties) &&
               !take_ape<TagLib::WavPack::File>(file, properties) &&
               !take_ape<TagLib::MPC::File>(file, properties)) {
        properties = file.properties();
    }
    return properties;
}

const char *codec_of(const TagLib::File &file) {
    if (as<TagLib::FLAC::File>(file) || as<TagLib::Ogg::FLAC::File>(file)) {
        return "flac";
    }
    if (as<TagLib::Vorbis::File>(file)) {
        return "vorbis";
    }
    if (as<TagLib::Ogg::Opus::File>(file)) {
        return "opus";
    }
    if (as<TagLib::Ogg::Speex::File>(file)) {
        return "speex";
    }
    if (const auto *mpeg = as<TagLib::MPEG::File>(file)) {
        const auto *audio = mpeg->audioProperties();
        return audio && audio->layer() == 2 ? "mp2" : audio && audio->layer() == 1 ? "mp1" : "mp3";
    }
    if (const auto *mp4 = as<TagLib::MP4::File>(file)) {
        const auto *audio = mp4->audioProperties();
        return audio && audio->codec() == TagLib::MP4::Properties::ALAC ? "alac" : "aac";
    }
    if (as<TagLib::RIFF::WAV::File>(file) || as<TagLib::RIFF::AIFF::File>(file)) {
        return "pcm";
    }
    if (as<TagLib::APE::File>(file)) {
        return "ape";
    }
    if (as<TagLib::WavPack::File>(file)) {
        return "wavpack";
    }
    if (as<TagLib::MPC::File>(file)) {
        return "musepack";
    }
    if (as<TagLib::TrueAudio::File>(file)) {
        return "tta";
    }
    if (as<TagLib::ASF::File>(file)) {
        return "wma";
    }
    return "";
}

std::string picture_in(TagLib::File &file) {
    if (auto *flac = dynamic_cast<TagLib::FLAC::File *>(&file)) {
        std::string picture = best_of(flac->pictureList());
        if (picture.empty() && flac->hasID3v2Tag()) {
            picture = in_id3(flac->ID3v2Tag());
        }
        return picture;
    }
    if (auto *mpeg = dynamic_cast<TagLib::MPEG::File *>(&file)) {
        std::string picture = mpeg->hasID3v2Tag() ? in_id3(mpeg->ID3v2Tag()) : "";
        return picture.empty() && mpeg->hasAPETag() ? in_ape(mpeg->APETag()) : picture;
    }
    if (auto *mp4 = dynamic_cast<TagLib::MP4::File *>(&file)) {
        return in_mp4(mp4->tag());
    }
    if (auto *asf = dynamic_cast<TagLib::ASF::File *>(&file)) {
        return in_asf(asf->tag());
    }
    if (auto *wav = dynamic_cast<TagLib::RIFF::WAV::File *>(&file)) {
        return wav->hasID3v2Tag() ? in_id3(wav->ID3v2Tag()) : "";
    }
    if (auto *aiff = dynamic_cast<TagLib::RIFF::AIFF::File *>(&file)) {
        return aiff->hasID3v2Tag() ? in_id3(aiff->tag()) : "";
    }
    if (auto *ape = dynamic_cast<TagLib::APE::File *>(&file)) {
        return ape->hasAPETag() ? in_ape(ape->APETag()) : "";
    }
    if (auto *wavpack = dynamic_cast<TagLib::WavPack::File *>(&file)) {
        return wavpack->hasAPETag() ? in_ape(wavpack->APETag()) : "";
    }
    if (auto *mpc = dynamic_cast<TagLib::MPC::File *>(&file)) {
        return mpc->hasAPETag() ? in_ape(mpc->APETag()) : "";
    }
    return in_xiph(file.tag());
}

} // namespace vantro::service::catalogue
