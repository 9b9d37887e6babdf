// The folders of nodes, for scans of a part of a source.
#ifndef VANTRO_SERVICE_CATALOGUE_QUERY_NODE_FOLDERS_H
#define VANTRO_SERVICE_CATALOGUE_QUERY_NODE_FOLDERS_H

#include <set>
#include <string>

#include "service/catalogue/database/database.h"
#include "service/catalogue/query/source_browser.h"

namespace vantro::service::catalogue {

// The paths, below the source, of the folders that have a node's songs; of a playlist, also of the
// folder with its file. "" is the whole source.
std::set<std::string> folders_of(Database &database, SourceBrowser &browser, Place place);

} // namespace vantro::service::catalogue

#endif
