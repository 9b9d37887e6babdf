// The page's files, read when the program starts.
#ifndef VANTRO_BRIDGES_WEB_PAGE_FILES_H
#define VANTRO_BRIDGES_WEB_PAGE_FILES_H

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "bridges/web/http.h"

namespace vantro::web {

// They are read once, so that no request ever names a file.
class PageFiles {
  public:
    // @throws std::runtime_error if the folder has no page.
    explicit PageFiles(const std::string &folder);

    // @throws ApiError if there is no such file.
    Response get(const std::string &name, std::string_view known_etag) const;

  private:
    struct File {
        const char *type;
        std::string etag;
        std::shared_ptr<const std::string> bytes;
    };

    std::map<std::string, File> files_;
};

} // namespace vantro::web

#endif
