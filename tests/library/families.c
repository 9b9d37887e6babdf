/* Uses everything that keeps something in a process: connections, objects, events, the log. Loaded
by unload_test.
 */
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vantro/messaging.h>
#include <vantro/platform/io.h>
#include <vantro/platform/log.h>
#include <vantro/platform/names.h>
#include <vantro/platform/notify.h>
#include <vantro/platform/objects.h>
#include <vantro/player.h>
#include <vantro/protocol.h>

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
    if ((failed = use_objects(player))) {
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
