// A collection of real files in a directory of its own, and the catalogue that scans it.
#ifndef VANTRO_TESTS_SERVICE_CATALOGUE_COLLECTION_H
#define VANTRO_TESTS_SERVICE_CATALOGUE_COLLECTION_H

#include <algorithm>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <taglib/fileref.h>
#include <taglib/flacfile.h>
#include <taglib/tpropertymap.h>

#include <vantro/catalogue.h>
#include <vantro/platform/log.h>

#include "service/catalogue/store.h"
#include "tests/support/music.h"
#include "tests/support/process.h"

namespace vantro::service::catalogue {

using Values = std::vector<std::pair<std::string, std::string>>;

// Tags as KEY=value, with a bar between them.
inline Values values_of(const std::string &tags) {
    Values values;
    std::istringstream rest(tags);
    for (std::string tag; std::getline(rest, tag, '|');) {
        values.emplace_back(tag.substr(0, tag.find('=')), tag.substr(tag.find('=') + 1));
    }
    return values;
}

inline std::string big_endian(uint32_t number, int bytes) {
    std::string text;
    while (bytes-- > 0) {
        text += static_cast<char>(number >> (8 * bytes));
    }
    return text;
}

// The smallest picture with a size, and some bytes that make it differ from others.
inline std::string png(uint32_t width, uint32_t height, const std::string &more = "") {
    return std::string("\x89PNG\r\n\x1A\n\0\0\0\x0DIHDR", 16) + big_endian(width, 4) +
           big_endian(height, 4) + more;
}

class NodeList : public NodeSink, public std::vector<Node> {
  public:
    bool take(const NodeRow &row) override {
        push_back({std::string(row.id), std::string(row.name), row.type, row.count, row.source,
                   row.source_type});
        return true;
    }
    bool has(const std::string &name, size_t, size_t) override {
        list = name;
        return false;
    }

    std::string list; // its name
};

class Collection : public test::RuntimeDirectory {
  protected:
    void SetUp() override {
        RuntimeDirectory::SetUp();
        path_ = std::filesystem::canonical(path_);
        music_ = std::filesystem::path(path_) / "music";
        state_ = std::filesystem::path(path_) / "state";
        std::filesystem::create_directory(music_);
        test::make_music(template_flac(), 400);
    }
    void TearDown() override {
        close();
        RuntimeDirectory::TearDown();
    }

    std::filesystem::path template_flac() const {
        return std::filesystem::path(path_) / "template.flac";
    }

    // A FLAC file below the music directory with these tags, and with that cover.
    void add(const std::string &name, const Values &tags = {}, const std::string &cover = "") {
        const std::filesystem::path file = music_ / name;
        const std::filesystem::path part = std::filesystem::path(path_) / "part.flac";
        std::filesystem::create_directories(file.parent_path());
        std::filesystem::copy_file(template_flac(), part,
                                   std::filesystem::copy_options::overwrite_existing);
        TagLib::FLAC::File flac(part.c_str());
        TagLib::PropertyMap properties;
        for (const auto &[key, value] : tags) {
            properties[key].append(TagLib::String(value, TagLib::String::UTF8));
        }
        flac.setProperties(properties);
        if (!cover.empty()) {
            auto *picture = new TagLib::FLAC::Picture;
            picture->setType(TagLib::FLAC::Picture::FrontCover);
            picture->setData(TagLib::ByteVector(cover.data(), static_cast<unsigned>(cover.size())));
            flac.addPicture(picture);
        }
        ASSERT_TRUE(flac.save());
        std::filesystem::rename(part, file); // whole at once, as a watch sees it
    }

    // A song in each of five folders.
    void add_to_folders(int number) {
        for (int i = 0; i < 5; ++i) {
            add(fmt::format("{}/{}.flac", i, number), {{"TITLE", fmt::format("{} {}", i, number)},
                                                       {"ARTIST", fmt::format("a{}", i % 4)}});
        }
    }

    // Opens the catalogue; `scan` also waits until every source has been scanned.
    void open(bool scan = true) {
        close();
        scans_ = 0;
        last_ = {};
        StoreOptions options;
        options.state = state_;
        options.music = sources_.empty() ? std::vector{music_} : sources_;
        options.artwork_readers = artwork_readers_;
        options.settle = settle_;
        options.rescan_every = rescan_every_;
        options.rescan_unwatched = rescan_unwatched_;
        options.log = [this](int severity, const std::string &line) {
            note([&] {
                if (severity <= LOG_SEVERITY_WARNING) {
                    complaints_.push_back(line);
                }
            });
        };
        options.progress = [this](const ScanProgress &progress) {
            note([&] {
                if (progress.done) {
                    last_ = progress;
                    ++scans_;
                }
            });
        };
        options.changed = [this](int32_t) { note([&] { ++changes_; }); };
        auto opened = open_store(options);
        ASSERT_TRUE(opened) << last_words(opened.error());
        store_ = std::move(*opened);
        source_ = store_->sources().at(0).id;
        if (scan) {
            this->scan();
        }
    }
    void close() { store_.reset(); }

    // Scans everything, and waits for the end of it.
    void scan() {
        int before = 0;
        note([&] { before = scans_; });
        store_->start_scanning();
        if (before != 0) {
            store_->rescan();
        }
        const int wanted = before + static_cast<int>(store_->sources().size());
        wait_for([&] { return scans_ >= wanted; });
    }

    // Waits until `good` holds; it is tested again after every change. Call it without the lock.
    void await(const std::function<bool()> &good) {
        for (;;) {
            int seen = 0;
            note([&] { seen = changes_; });
            if (good()) {
                return;
            }
            wait_for([&] { return changes_ != seen; });
            if (HasFatalFailure()) {
                return;
            }
        }
    }
    void wait_for(const std::function<bool()> &good) {
        std::unique_lock<std::mutex> lock(mutex_);
        ASSERT_TRUE(changed_.wait_for(lock, std::chrono::seconds(60), good)) << "in vain";
    }

    std::vector<Node> browse(const std::string &node, Range range = {}) {
        NodeList nodes;
        EXPECT_EQ(store_->browse(source_, node, range, nodes), 0) << node;
        return nodes;
    }
    std::vector<std::string> names(const std::vector<Node> &nodes) const {
        std::vector<std::string> all;
        all.reserve(nodes.size());
        for (const Node &node : nodes) {
            all.push_back(node.name);
        }
        return all;
    }
    std::vector<std::string> names(const std::string &node) { return names(browse(node)); }
    // The entry of `node` that has that name.
    Node entry(const std::string &node, const std::string &name) {
        for (const Node &each : browse(node)) {
            if (each.name == name) {
                return each;
            }
        }
        ADD_FAILURE() << "no " << name << " in " << node;
        return {};
    }
    std::vector<std::string> found(const std::string &filter, const std::string &term) {
        NodeList nodes;
        EXPECT_EQ(store_->search(source_, filter, term, {}, nodes), 0) << term;
        return names(nodes);
    }
    std::vector<std::string> played(const std::string &node) {
        std::vector<QueuedSong> songs;
        EXPECT_EQ(store_->songs(source_, node, songs), 0) << node;
        std::vector<SongId> ids;
        ids.reserve(songs.size());
        for (const QueuedSong &song : songs) {
            ids.push_back(song.id);
        }
        return names(song_nodes(ids));
    }
    std::vector<QueuedSong> all_songs() {
        std::vector<QueuedSong> songs;
        EXPECT_EQ(store_->all_songs(songs), 0);
        return songs;
    }
    std::vector<Node> song_nodes(const std::vector<SongId> &ids) {
        NodeList nodes;
        EXPECT_EQ(store_->song_nodes(ids.data(), ids.size(), nodes), 0);
        return nodes;
    }
    SongMetadata metadata(const std::string &node) {
        std::optional<SongMetadata> found;
        EXPECT_EQ(store_->metadata(source_, node, found), 0) << node;
        return found.value_or(SongMetadata());
    }
    std::vector<std::string> extended(const std::string &node,
                                      const std::vector<std::string_view> &keys) {
        std::vector<std::string> values;
        EXPECT_EQ(store_->extended_metadata(source_, node, keys, values), 0);
        return values;
    }
    std::vector<std::string> complaints() {
        std::vector<std::string> lines;
        note([&] { lines.swap(complaints_); });
        for (const std::string &line : lines) { // whatever files are called
            EXPECT_TRUE(std::none_of(line.begin(), line.end(), [](char c) {
                return static_cast<unsigned char>(c) < ' ' || c == '\x7F';
            })) << line;
        }
        return lines;
    }
    void await_complaint() {
        wait_for([&] { return !complaints_.empty(); });
    }
    ScanProgress last() {
        ScanProgress progress;
        note([&] { progress = last_; });
        return progress;
    }

    std::filesystem::path music_;
    std::filesystem::path state_;
    std::vector<std::filesystem::path> sources_; // music_ alone where empty
    ArtworkReaders artwork_readers_;
    std::chrono::milliseconds rescan_every_ = std::chrono::hours(1);
    std::chrono::milliseconds rescan_unwatched_ = std::chrono::minutes(5);
    // So long that no change is noticed before scan().
    std::chrono::milliseconds settle_ = std::chrono::minutes(10);
    std::unique_ptr<Store> store_;
    int32_t source_ = 0;

    void note(const std::function<void()> &what) {
        const std::lock_guard<std::mutex> guard(mutex_);
        what();
        changed_.notify_all();
    }

    std::mutex mutex_; // guards all that follows
    std::condition_variable changed_;
    std::vector<std::string> complaints_;
    ScanProgress last_;
    int scans_ = 0;
    int changes_ = 0;
};

} // namespace vantro::service::catalogue

#endif
