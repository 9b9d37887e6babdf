// A client: its commands and command lists, what it waits for, and how it wants to see songs.
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
#include "bridges/mpd/permissions.h"
#include "bridges/mpd/subsystems.h"

namespace vantro::mpd {

class Client {
  public:
    // Bytes and lines of a command list. Clients load whole queues by one.
    static constexpr size_t list_bytes_max = 2 * 1024 * 1024;
    static constexpr size_t list_lines_max = 64 * 1024;
    // A piece of a cover, unless the client asks for another size.
    static constexpr size_t binary_default = 8192;

    // Wrong passwords before the connection ends.
    static constexpr int wrong_passwords_max = 10;

    // @param passwords borrowed, like the others.
    Client(Descriptor socket, Partition &partition, Partitions &partitions, Catalogue &catalogue,
           const Passwords &passwords);

    // Reads what the client has sent.
    void receive() { connection_.receive(); }

    // Carries out what can be carried out, for a short while, and sends what there is to send.
    void work();

    // Whether work() has more to do without any news of the client.
    bool busy() const;

    // Which news of the client work() waits for.
    bool wants_input() const;
    bool wants_output() const { return connection_.has_output(); }

    bool ended() const;

    // Tells of changes now, or keeps them for the next time that the client waits.
    void notify(const Subsystems &changed);

    int descriptor() const { return connection_.descriptor(); }
    Partition &partition() const { return *partition_; }
    void set_partition(Partition &partition) { partition_ = &partition; }

    // What the client may do; a password changes it. @return whether it is right.
    const Permissions &permissions() const { return permissions_; }
    bool give_password(const std::string &password);

    // For the commands: what waiting begins with, and how it ends.
    void wait_for(const Subsystems &wanted);
    void close() { closing_ = true; }

    TagSet shown_tags = TagSet().set().reset(index_of(Tag::comment));
    size_t binary_limit = binary_default;

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
    Partition *partition_;
    Partitions &partitions_;
    Catalogue &catalogue_;
    const Passwords &passwords_;
    Permissions permissions_;
    int wrong_passwords_ = 0;

    Subsystems changed_; // Not told yet.
    Subsystems waiting_; // What the client waits for.
    bool idle_ = false;  // It waits.
    bool closing_ = false;

    bool collecting_ = false; // Between the beginning and the end of a command list.
    bool tells_each_ = false; // Each command of the list is confirmed.
    bool in_list_ = false;    // The commands are those of a list.
    size_t list_bytes_ = 0;
    std::vector<std::string> lines_; // To be carried out.
    size_t at_ = 0;                  // The next of them.
    std::string command_;            // What is being carried out.
    TaskPtr task_;
};

} // namespace vantro::mpd

#endif
