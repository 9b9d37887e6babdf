// A client: its commands and command lists, the changes that it waits for, and its settings.
#ifndef VANTRO_BRIDGES_MPD_CLIENT_H
#define VANTRO_BRIDGES_MPD_CLIENT_H

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "bridges/mpd/ack.h"
#include "bridges/mpd/command.h"
#include "bridges/mpd/connection.h"
#include "bridges/mpd/mailbox.h"
#include "bridges/mpd/permissions.h"
#include "bridges/mpd/subsystems.h"

namespace vantro::mpd {

class Client {
  public:
    // Bytes and lines of a command list. Clients load whole queues with one list.
    static constexpr size_t list_bytes_max = 2 * 1024 * 1024;
    static constexpr size_t list_lines_max = 64 * 1024;
    // Bytes of a piece of a cover, unless the client requests another size.
    static constexpr size_t binary_default = 8192;

    // Wrong passwords before the connection ends.
    static constexpr int wrong_passwords_max = 10;

    // @param clients all connected clients, including this one; borrowed, like the others.
    Client(Descriptor socket, Clients &clients, Partition &partition, Partitions &partitions,
           Catalogue &catalogue, const Passwords &passwords);

    // Reads what the client has sent.
    void receive() { connection_.receive(); }

    // Carries out commands for a short time, and sends pending output.
    void work();

    // Whether work() has more to do without an event of the client's socket.
    bool busy() const;

    // The events of the client's socket that work() waits for.
    bool wants_input() const;
    bool wants_output() const { return connection_.has_output(); }

    bool ended() const;

    // Reports changes now, or keeps them until the client waits.
    void notify(const Subsystems &changed);

    int descriptor() const { return connection_.descriptor(); }
    Partition &partition() const { return *partition_; }
    void set_partition(Partition &partition) { partition_ = &partition; }

    // The client's permissions. give_password() replaces them. @return whether the password is
    // right.
    const Permissions &permissions() const { return permissions_; }
    bool give_password(const std::string &password);

    // For the commands: start waiting for changes, and end the connection.
    void wait_for(const Subsystems &wanted);
    void close() { closing_ = true; }

    // Ends the connection at once.
    void drop() { connection_.give_up(); }

    TagSet shown_tags = TagSet().set().reset(index_of(Tag::comment));
    size_t binary_limit = binary_default;
    Mailbox mailbox;

  private:
    void take_line(std::string_view line);
    void begin_list(bool tells_each);
    void add_to_list(std::string_view line);
    void run_next();
    bool run(const std::string &line);
    const Command &need_command(Arguments words) const;
    void carry_out(const Command &command, Arguments arguments);
    bool step_task();
    void refuse(AckCode code, const std::string &text);
    void refuse_current();
    void commit_rest();
    void commit_turn();
    void finish_command();
    void tell_changes();
    Context context();

    Connection connection_;
    Clients &clients_;
    Partition *partition_;
    Partitions &partitions_;
    Catalogue &catalogue_;
    const Passwords &passwords_;
    Permissions permissions_;
    int wrong_passwords_ = 0;

    Subsystems changed_; // Not reported yet.
    Subsystems waiting_; // The changes that the client waits for.
    bool idle_ = false;  // The client waits.
    bool closing_ = false;

    bool collecting_ = false; // Between the beginning and the end of a command list.
    bool tells_each_ = false; // Each command of the list is confirmed.
    bool in_list_ = false;    // The commands are those of a list.
    size_t list_bytes_ = 0;
    std::vector<std::string> lines_; // The commands to carry out.
    size_t at_ = 0;                  // The index of the next one.
    std::string command_;            // The command in progress.
    TaskPtr task_;
};

} // namespace vantro::mpd

#endif
