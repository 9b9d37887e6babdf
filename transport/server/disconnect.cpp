#include "transport/server/disconnect.h"

#include "transport/server/held_answers.h"
#include "transport/server/server.h"

namespace vantro::transport {

void close_opens_of(MsgServer *server, int32_t conn_id) {
    for (int32_t i = 0; i < server->services->slot_count; i++) {
        auto *service = static_cast<MsgService *>(_array_get(server->services, i));
        for (int32_t j = 0; service && j < service->opens->slot_count; j++) {
            auto *open = static_cast<MsgOsb *>(_array_get(service->opens, j));
            if (!open || open->conn_id != conn_id) {
                continue;
            }
            if (!open->closed) {
                service->open_count--;
            }
            // The handler does not run again for a record that is closed, owes no answer and only
            // waits for threads to drop their references: it ran at the close.
            const bool finished =
                open->closed && __atomic_load_n(answers_owed(open), __ATOMIC_ACQUIRE) == 0;
            if (service->close_cb && !finished) {
                service->close_cb(open, nullptr, service);
            }
            if (open->inuse == 0) {
                free_open(open);
            } else {
                open->closed = 1;
                open->conn_id = no_connection; // the id may soon be another client's
            }
        }
    }
}

} // namespace vantro::transport
