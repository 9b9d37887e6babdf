/* Every family of the public headers, from C11. Loaded by unload_test. */
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vantro/extras.h>
#include <vantro/messaging.h>
#include <vantro/platform/change.h>
#include <vantro/platform/dictionary.h>
#include <vantro/platform/io.h>
#include <vantro/platform/json.h>
#include <vantro/platform/log.h>
#include <vantro/platform/names.h>
#include <vantro/platform/notify.h>
#include <vantro/platform/objects.h>
#include <vantro/player.h>
#include <vantro/protocol.h>
#include <vantro/records.h>

#define CHECK(condition)                                                                           \
    do {                                                                                           \
        if (!(condition))                                                                          \
            return __LINE__;                                                                       \
    } while (0)

#define EXPORTED __attribute__((visibility("default")))

enum { WAKE_SIGNAL = 57 };

static int32_t agree(MsgOsb *open, MsgContext *context, MsgService *service) {
    const int32_t granted = 0;
    (void)service;
    return callout_reply(open, context, 0, &granted, sizeof granted);
}

/* In a process of its own, which does not return. */
EXPORTED void serve_family(int ready) {
    MsgServer *server = msgserver_create(1024, 1, MSGSERVER_FLAG_PATH);
    if (server && msgserver_add(server, "vantro.sys", NULL, NULL, 64, agree, NULL, NULL) >= 0 &&
        write(ready, "r", 1) == 1) {
        msgserver_thread_loop(server);
    }
    _exit(1);
}

static int use_records(void) {
    const ServiceMediaNode packed = {"id", "name", 0, 1, 2, 3, 4, 0};
    char bytes[64];
    int size = compute_media_node_size(&packed, 1);
    MediaNode *node = NULL;
    CHECK(size > 0 && size <= (int)sizeof bytes);
    pack_media_node(&packed, 1, bytes, &size);
    CHECK(unpack_media_node(bytes, size, 1, &node) == 0 && strcmp(node->name, "name") == 0);
    vantro_free_media_nodes(node, 1);
    return 0;
}

static int use_texts(void) {
    char text[64], json[] = "{\"id\":7}";
    char *cursor = text;
    struct kivo_writer writer;
    struct kivo_record record = {0};
    struct kivo_decoder decoder;
    int32_t id = 0;
    mosk_dict *dict = mosk_dict_new();
    kivo_writer_init(&writer, text, sizeof text);
    kivo_write_attribute(&writer, "a:b", KIVO_NUMBER, "1");
    CHECK(kivo_writer_finish(&writer) > 0);
    CHECK(kivoparse(&cursor, NULL, NULL, &record, 0) == KIVO_ATTRIBUTE);
    CHECK((dict = mosk_dict_set(dict, record.attribute, record.value)));
    CHECK(strcmp(mosk_dict_find_value(dict, "a:b"), "1") == 0);
    mosk_dict_destroy(dict);
    CHECK(kivo_decoder_initialize(&decoder, json) == 0 && kivo_decoder_push(&decoder, NULL) == 0);
    CHECK(kivo_decoder_get_int(&decoder, "id", &id) == 0 && id == 7);
    kivo_decoder_cleanup(&decoder);
    return 0;
}

static int use_objects(VantroHandle *player) {
    const struct object_attribute position = {"position", KIVO_NUMBER, "1500"};
    const struct ipc_event event = {IPC_EVENT_SIGNAL_THREAD, WAKE_SIGNAL, 0, 0, 0};
    struct object_publisher *publisher = object_publisher_open("/kivo/services/vantro/main");
    const VantroEvent *got;
    sigset_t signals;
    int reader;
    CHECK(publisher && (got = vantro_event_get(player)) && got->type == VANTRO_EVENT_NONE);
    CHECK((reader = platform_open("/kivo/services/vantro/main/.all?delta", O_RDONLY)) >= 0);
    sigemptyset(&signals);
    sigaddset(&signals, WAKE_SIGNAL);
    pthread_sigmask(SIG_BLOCK, &signals, NULL);
    CHECK(notify_arm(reader, NOTIFY_TEST_AND_ARM, NOTIFY_INPUT, &event) == 0);
    CHECK(object_publish(publisher, "status", 0, &position, 1) == 0);
    CHECK(sigwaitinfo(&signals, NULL) == WAKE_SIGNAL && notify_disarm(reader) == 0);
    CHECK(platform_close(reader) == 0 && vantro_event_wait(player) == 0);
    CHECK((got = vantro_event_get(player)) && got->details.status.position == 1500);
    object_publisher_close(publisher);
    return 0;
}

static void swallow(uint32_t code, int severity, const char *line, void *data) {
    (void)code, (void)severity, (void)line;
    ++*(int *)data;
}

/* Returns 0, or the line that failed. */
EXPORTED int use_families(void) {
    const RequestHeader play = {.command = VANTRO_COMMAND_PLAY};
    int lines = 0, failed = 0, status = 0;
    VantroHandle *player = vantro_connect();
    MsgClient *client = msgclient_open("vantro.sys", NULL, 0);
    pid_t child;
    system_log_set_sink(swallow, &lines);
    CHECK(player && vantro_open(player, "main") == 0 && vantro_play(player) == 0);
    CHECK(vantro_open(NULL, "main") == -1 && lines == 1);
    CHECK(client && msgclient_putget(client, &play, sizeof play, &failed, 4, NULL, 0) == 0);
    CHECK(global_name_open("none", 0) == -1);
    if ((failed = use_records()) || (failed = use_texts()) || (failed = use_objects(player))) {
        return failed;
    }
    if ((child = fork()) == 0) {
        _exit(0);
    }
    CHECK(waitpid(child, &status, 0) == child && status == 0);
    CHECK(msgclient_close(client) == 0 && vantro_disconnect(player) == 0);
    system_log_set_sink(NULL, NULL);
    return 0;
}
