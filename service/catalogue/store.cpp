#include "service/catalogue/store.h"

#include <cerrno>
#include <cstdlib>

#include <vantro/catalogue.h>

namespace vantro {

namespace {

// Answers as a catalogue does whose scan has found nothing yet.
class EmptyStore : public Store {
  public:
    explicit EmptyStore(StoreOptions options) : options_(std::move(options)) {}

    std::vector<Source> sources() override {
        std::vector<Source> all;
        for (const std::filesystem::path &path : options_.music) {
            Source source;
            source.id = static_cast<int32_t>(all.size() + 1);
            source.uid = source.name = source.view_name = path.filename().string();
            source.type = VANTRO_SOURCE_DIRECTORY;
            source.status = VANTRO_SOURCE_READY;
            all.push_back(source);
        }
        return all;
    }
    int browse(int32_t, std::string_view, Range, std::vector<Node> &) override { return ENOENT; }
    int search(int32_t, std::string_view, std::string_view, Range, std::vector<Node> &) override {
        return ENOENT;
    }
    int metadata(int32_t, std::string_view, std::optional<SongMetadata> &) override {
        return ENOENT;
    }
    int extended_metadata(int32_t, std::string_view, const std::vector<std::string_view> &,
                          std::vector<std::string> &) override {
        return ENOENT;
    }
    int songs(int32_t, std::string_view, std::vector<QueuedSong> &) override { return ENOENT; }
    std::vector<QueuedSong> all_songs() override { return {}; }
    std::vector<Node> song_nodes(const SongId *, std::size_t count) override {
        return std::vector<Node>(count);
    }
    bool song(SongId, Node &, SongMetadata &) override { return false; }
    int32_t take_session_ids(int32_t count) override {
        next_session_ += count;
        return next_session_ - count;
    }
    void start_scanning() override {}
    void stop_scanning() override {}
    void rescan() override {}

  private:
    const StoreOptions options_;
    int32_t next_session_ = 1;
};

} // namespace

std::unique_ptr<Store> open_store(StoreOptions options, std::string &) {
    return std::make_unique<EmptyStore>(std::move(options));
}

std::filesystem::path default_state_directory() {
    if (const char *state = std::getenv("XDG_STATE_HOME"); state && *state == '/')
        return std::filesystem::path(state) / "vantro";
    if (const char *home = std::getenv("HOME"); home && *home == '/')
        return std::filesystem::path(home) / ".local/state/vantro";
    return {};
}

} // namespace vantro
