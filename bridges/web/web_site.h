// The page and the API behind it.
#ifndef VANTRO_BRIDGES_WEB_WEB_SITE_H
#define VANTRO_BRIDGES_WEB_WEB_SITE_H

#include <string>
#include <string_view>
#include <vector>

#include "bridges/web/guard.h"
#include "bridges/web/http_server.h"
#include "bridges/web/page_files.h"
#include "bridges/web/pairing.h"
#include "bridges/web/players.h"

namespace vantro::web {

class WebSite : public Site {
  public:
    WebSite(Players &players, Pairing &pairing, PageFiles page, Guard guard);

    void admit(const Request &request) override;
    Response answer(const Request &request) override;
    Response refuse(const ApiError &error) override;
    PlayerLink &followed(const std::string &player) override { return players_.find(player); }

  private:
    bool is_trusted(const RequestHead &head) const;
    Response answer_page(const Request &request) const;
    Response answer_api(const Request &request);
    PlayerLink &any_player();

    Players &players_;
    Pairing &pairing_;
    PageFiles page_;
    Guard guard_;
};

} // namespace vantro::web

#endif
