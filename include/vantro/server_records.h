/**
 * @file
 * The records of the messaging layer: the header of each message, and the records of servers,
 * services, opens and held answers. messaging.h, which includes this header, has the functions that
 * use them.
 *
 * The library makes, owns and frees all of them. A service changes only the fields whose comments
 * allow it, and reads fields that other threads may change with the server lock held.
 */
#ifndef VANTRO_SERVER_RECORDS_H
#define VANTRO_SERVER_RECORDS_H

#include <pthread.h>
#include <stdint.h>
#include <sys/uio.h>

#include <vantro/platform/message.h>
#include <vantro/platform/path.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Kinds of transport message. */
enum {
    MSG_KIND_OPEN = 0,
    MSG_KIND_CLOSE = 1,
    MSG_KIND_NOTIFY = 2,
    MSG_KIND_PUTGET = 3,
    MSG_KIND_PUT = 4,
    MSG_KIND_GET = 5
};

/** The header of every transport message, in both directions. 28 bytes, native byte order. */
typedef struct TransportHeader {
    uint8_t kind;          /**< MSG_KIND_*. */
    uint8_t version;       /**< 2. */
    uint16_t code;         /**< The caller's message code; for the service to read. */
    int16_t service_index; /**< The service's index in the server; filled by the open. */
    int16_t open_index;    /**< The open record's index in the service; filled by the open. */
    uint32_t tag;          /**< put: tag of the request. get: tag of the answer. Else 0. */
    uint32_t send_length;  /**< Bytes of payload after the header (16 for notify, 28 for close). */
    uint32_t reply_length; /**< Request: reply capacity in bytes, header not counted; notify: the
                                queue limit. Reply: bytes of the answer. */
    uint32_t reserved0;    /**< 0. */
    uint32_t reserved1;    /**< 0. */
} TransportHeader;

typedef struct MsgServer MsgServer;   /**< See below. */
typedef struct MsgService MsgService; /**< See below. */
typedef struct MsgContext MsgContext; /**< See below. */
typedef struct MsgOsb MsgOsb;         /**< See below. */
typedef struct MsgPending MsgPending; /**< See below. */

/** Creation flags of a server. Other bits are stored and have no effect. */
enum {
    MSGSERVER_FLAG_NOCHECK = 0x1, /**< No capability check on open. */
    MSGSERVER_FLAG_PATH = 0x2,    /**< Path mode; sets MSGSERVER_FLAG_NOCHECK too. */
    /** If a process may not open a service, the log names the process, its user, and the missing
       permission bits or capabilities, at most once a minute for each user. For this, the server
       asks the grantor again for each capability. */
    MSGSERVER_FLAG_LOG_REFUSALS = 0x10000
};

/** A growable table of pointers to zero-filled elements that it owns. Never shrinks or moves one.
 */
typedef struct SlotArray {
    int32_t slot_count; /**< Slots, a multiple of 8. */
    void **slots;       /**< A null pointer marks a free slot. */
} SlotArray;

/**
 * A service's handler. Runs in a server thread without the server lock (but see `close_cb`).
 *
 * Close. A close handler runs once for an open, with one exception: if an answer was still owed
 * when the client closed, and is still owed when the client's connection ends, the handler runs
 * again. A second call has no context and finds `closed` of the record 1; a first call has a
 * context (of the close request), or no context and `closed` 0 (the client vanished). The two calls
 * never overlap. So if the close handler does nothing when `!context && open->closed`, the service
 * frees its data of an open exactly once.
 *
 * A client may send from several threads, so a close handler can run while another thread handles
 * a request of the same open, and a request can still come after it as long as another request is
 * handled or an answer is owed: a request handler must check, with the service's own lock held,
 * whether the service's data of the open still exist.
 *
 * References. A request handler must ensure that its request is answered exactly once by one of the
 * reply operations. If it answers with ipc_error() only, it must drop the reference for the answer
 * by _msgserver_lock_then_decr_inuse_and_release_osb_if_closed(), otherwise the record is never
 * freed.
 *
 * An open handler refuses by its result; if it answers with ipc_error() itself, the open is refused
 * too, whatever the result is. No request of a refused open is ever handled, and its close handler
 * runs when that client vanishes.
 * @param service the service that was opened.
 * @param open    the open record. In a request handler it is valid until the answer, and must not
 *                be used afterwards; in the other handlers it is valid until they return.
 * @param context the thread's receive context: header, payload and sender of the request; valid
 *                until the thread receives again. NULL for a close of a vanished client.
 * @return only an open handler's result counts: 0 accepts; any other value is the error number that
 *   the client receives.
 */
typedef int32_t (*MsgHandler)(MsgOsb *open, MsgContext *context, MsgService *service);

/** See callout_reply(). */
typedef int32_t (*MsgReply)(MsgOsb *open, MsgContext *context, int32_t status, const void *data,
                            int32_t length);
/** See callout_replyv(). */
typedef int32_t (*MsgReplyv)(MsgOsb *open, MsgContext *context, int32_t status,
                             const struct iovec *parts, int32_t count);
/** See callout_reply2(). */
typedef int32_t (*MsgReply2)(MsgOsb *open, int32_t receive_id, uint32_t tag, int32_t status,
                             const struct iovec *parts, int32_t count);

/** A message server. Lives from msgserver_create() to the end of the process. */
struct MsgServer {
    uint32_t flags;       /**< MSGSERVER_FLAG_*, as adjusted. */
    int32_t grantor_fd;   /**< Descriptor of the grantor device, or -1. It changes when the grantor
                             restarts. */
    int32_t recv_size;    /**< Payload capacity of a new thread's receive buffer, in bytes. */
    int32_t max_msg_size; /**< Largest payload capacity that a receive buffer grows to. */
    int32_t queue_max;    /**< Upper bound of the queue limit that a client may request. */
    int32_t stop;         /**< Not 0 ends msgserver_thread_loop(); access it with __atomic_*. */
    int32_t channel;      /**< The channel that all threads receive on. */
    MsgReply reply;       /**< callout_reply(). */
    MsgReplyv replyv;     /**< callout_replyv(). */
    MsgReply2 reply2;     /**< callout_reply2(). */
    struct path_dispatch *dispatch; /**< The framework's handle over the channel. */
    pthread_key_t key;              /**< Holds each thread's MsgContext. */
    pthread_mutex_t lock;           /**< The server lock: services, opens, their counts, queues. */
    SlotArray *services;            /**< Table of MsgService. */
    SlotArray service_table;        /**< The target of `services`. */
};

/** One attached service. Lives as long as its server. */
struct MsgService {
    char *name;            /**< Own copy. */
    char *options;         /**< Own copy; "" when none were given. */
    pthread_mutex_t lock;  /**< For the service's use; the framework never takes it. */
    int32_t open_count;    /**< Opens that are not closed. */
    MsgHandler request_cb; /**< Answers requests. */
    MsgHandler open_cb;    /**< Or NULL. */
    MsgHandler close_cb;  /**< Or NULL. If a client vanished, it is called with the server lock held
                             and a NULL context, and must not answer. */
    SlotArray *opens;     /**< Table of MsgOsb. */
    SlotArray open_table; /**< The target of `opens`. */
    struct path_attr *attr; /**< The path's attribute record; NULL in name mode. */
};

/** A server thread's receive context. */
struct MsgContext {
    int32_t receive_id;      /**< Of the last message; 0: a pulse; -1: a failed receive. */
    struct ipc_info info;    /**< Sender and length of the last message. */
    TransportHeader *header; /**< Start of the receive buffer. */
    void *payload;           /**< The payload: after the header, or in a buffer of the service (set
                                  it together with payload_size). For a putget or put, all
                                  `send_length` bytes of the header are present. */
    int32_t payload_size;    /**< Capacity at payload, in bytes. */
    struct path_context *framework_context; /**< Path mode only, else NULL. */
};

/** An open record: one open of a service by one client. */
struct MsgOsb {
    char *service_name;     /**< The service's. */
    pthread_mutex_t lock;   /**< For the service's use; the framework never takes it. */
    int32_t inuse;          /**< References held by dispatch steps and by owed answers. */
    int32_t queue_limit;    /**< The number of held answers at which a put is refused; 0 before any
                               notify. */
    int32_t queued;         /**< Answers held. */
    int32_t closed;         /**< 1 once closed by the client, or its connection vanished. */
    MsgPending *pending;    /**< Answers held, newest first. */
    MsgServer *server;      /**< The server of the service. */
    int32_t conn_id;        /**< Server-side id of the client's connection; -1 once it vanished. */
    struct ipc_event event; /**< The client's notification event, as sent. */
    MsgService *service;    /**< The service that was opened. */
    int32_t index;          /**< Slot in the service's table of opens. */
    int32_t unaccepted; /**< 1 until the open handler accepted: requests are refused (ENOENT). */
};

/** One held answer; its bytes follow directly. */
struct MsgPending {
    MsgPending *next; /**< The next older one. */
    uint32_t tag;     /**< The tag for fetching it. */
    int32_t length;   /**< Bytes of the answer. */
    int32_t status;   /**< Reply status that the client receives with it. */
};

#ifdef __cplusplus
}
#endif

#endif
