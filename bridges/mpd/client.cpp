#include "bridges/mpd/client.h"

#include <chrono>
#include <exception>

#include <fmt/format.h>

#include "bridges/mpd/catalogue.h"
#include "bridges/mpd/line_parser.h"
#include "bridges/mpd/partitions.h"
#include "bridges/mpd/service_call.h"

namespace vantro::mpd {
namespace {

// The version of the protocol that is spoken here.
constexpr std::string_view greeting = "OK MPD 0.23.5\n";

// A web page can make a browser send requests with commands to a port of this machine.
bool is_of_a_browser(std::string_view line) {
    const size_t version = line.rfind(" HTTP/");
    return version != std::string_view::npos && line.find('"') == std::string_view::npos &&
           line.size() - version <= std::string_view(" HTTP/1.1").size();
}

// The time after which the other clients have their turn.
constexpr std::chrono::milliseconds turn(5);

} // namespace

Client::Client(Descriptor socket, Clients &clients, Partition &partition, Partitions &partitions,
               Catalogue &catalogue, const Passwords &passwords)
    : connection_(std::move(socket)), clients_(clients), partition_(&partition),
      partitions_(partitions), catalogue_(catalogue), passwords_(passwords),
      permissions_(passwords.at_first()) {
    connection_.output() = greeting;
}

Context Client::context() {
    catalogue_.be_at(partitions_.catalogue_version());
    return {*this, clients_, *partition_, partitions_, catalogue_, Reply(connection_.output())};
}

bool Client::busy() const {
    if (connection_.broken() || closing_ || connection_.full()) {
        return false;
    }
    return task_ || at_ < lines_.size() || connection_.has_line() || connection_.overlong();
}

bool Client::wants_input() const {
    if (connection_.at_end()) {
        return false;
    }
    return closing_ || (!task_ && at_ >= lines_.size() && !connection_.has_line());
}

bool Client::ended() const {
    if (connection_.broken()) {
        return true;
    }
    return !connection_.has_output() && connection_.at_end() && !busy();
}

void Client::work() {
    const auto end = std::chrono::steady_clock::now() + turn;
    while (busy()) {
        if (task_ || at_ < lines_.size()) {
            run_next();
        } else if (const auto line = connection_.take_line()) {
            take_line(*line);
        } else {
            command_.clear();
            in_list_ = false;
            refuse(AckCode::argument, "the line is too long");
            closing_ = true;
        }
        if (std::chrono::steady_clock::now() >= end) {
            break;
        }
    }
    commit_turn();
    connection_.send();
    if (closing_) {
        connection_.finish();
    }
}

void Client::take_line(std::string_view line) {
    if (idle_) {
        if (line == "noidle") {
            idle_ = false;
            connection_.output() += "OK\n";
        } else {
            closing_ = true; // an answer could not be distinguished from the notification
        }
        return;
    }
    if (is_of_a_browser(line)) {
        closing_ = true;
    } else if (collecting_) {
        add_to_list(line);
    } else if (line == "command_list_begin" || line == "command_list_ok_begin") {
        begin_list(line == "command_list_ok_begin");
    } else if (line == "noidle") {
        return; // the notification was already sent
    } else {
        in_list_ = false;
        at_ = 0;
        lines_.assign(1, std::string(line));
        run_next();
    }
}

void Client::begin_list(bool tells_each) {
    collecting_ = true;
    tells_each_ = tells_each;
    lines_.clear();
    at_ = 0;
    list_bytes_ = 0;
}

void Client::add_to_list(std::string_view line) {
    if (line == "command_list_end") {
        collecting_ = false;
        in_list_ = true;
        at_ = 0;
        if (lines_.empty()) {
            connection_.output() += "OK\n";
        }
        return;
    }
    list_bytes_ += line.size();
    if (list_bytes_ > list_bytes_max || lines_.size() == list_lines_max) {
        command_.clear();
        refuse(AckCode::argument, "the command list is too long");
        closing_ = true;
        return;
    }
    lines_.emplace_back(line);
    at_ = lines_.size(); // commands of a list are carried out at its end
}

void Client::run_next() {
    if (!(task_ ? step_task() : run(lines_[at_]))) {
        lines_.clear();
        at_ = 0;
        task_.reset();
        return;
    }
    if (!task_) {
        finish_command();
    }
}

// Called after a command was carried out.
void Client::finish_command() {
    ++at_;
    const bool last = at_ >= lines_.size();
    if (in_list_ && tells_each_) {
        connection_.output() += "list_OK\n";
    }
    if (last) {
        lines_.clear();
        at_ = 0;
        if (idle_) {
            tell_changes();
        } else if (!closing_) {
            connection_.output() += "OK\n";
        }
    }
}

bool Client::run(const std::string &line) {
    command_.clear();
    try {
        const std::vector<std::string> words = parse_line(line);
        const Command &command = need_command(words);
        command_ = words.front();
        const Arguments arguments = Arguments(words).subspan(1);
        // A command that is always refused states its own reason.
        if (command.permission != Permission::nobody && !permissions_.allow(command.permission)) {
            throw Ack(AckCode::permission,
                      fmt::format("you don't have permission for \"{}\"", command_));
        }
        if (in_list_ && command_ == "idle") {
            throw Ack(AckCode::not_list, "not allowed in a command list");
        }
        if (arguments.size() < command.least || arguments.size() > command.most) {
            throw Ack(AckCode::argument,
                      fmt::format("wrong number of arguments for \"{}\"", command_));
        }
        carry_out(command, arguments);
        return true;
    } catch (const std::exception &) {
        refuse_current();
        commit_rest();
    }
    return false;
}

const Command &Client::need_command(Arguments words) const {
    if (const Command *const command = find_command(words.front())) {
        return *command;
    }
    throw Ack(AckCode::unknown, fmt::format("unknown command \"{}\"", words.front()));
}

bool Client::give_password(const std::string &password) {
    if (const Permissions *const found = passwords_.find(password)) {
        permissions_ = *found;
        return true;
    }
    closing_ = closing_ || ++wrong_passwords_ >= wrong_passwords_max;
    return false;
}

void Client::carry_out(const Command &command, Arguments arguments) {
    if (!command.drafts) {
        partition_->commit();
    }
    const bool alone = !partition_->has_draft();
    const size_t answered = connection_.output().size();
    const auto once = [&] {
        try {
            Context now = context();
            task_ = command.handler(now, arguments);
            if (at_ + 1 == lines_.size()) {
                partition_->commit(); // before the answer confirms the changes
            }
        } catch (...) {
            connection_.output().resize(answered); // discard an incomplete answer
            throw;
        }
    };
    try {
        once();
    } catch (const ServiceGone &gone) {
        if (!alone) {
            throw; // the changes before are lost
        }
        // Often only the first call notices that the service has ended; a new service may run
        // already.
        partition_->leave(gone);
        once();
    }
}

// The commands before the failed one were confirmed, or the client assumes that they are done.
void Client::commit_rest() {
    try {
        partition_->commit();
    } catch (const std::exception &) {
        // The first failure is the one that is reported.
    }
}

// Other clients see the queue between two turns of a long command list.
void Client::commit_turn() {
    try {
        partition_->commit();
    } catch (const std::exception &) {
        at_ = at_ > 0 ? at_ - 1 : 0; // the last command that was carried out
        refuse_current();
        lines_.clear();
        at_ = 0;
        task_.reset();
    }
}

// Call it inside a catch block.
void Client::refuse_current() {
    try {
        throw;
    } catch (const ServiceGone &gone) {
        partition_->leave(gone);
        refuse(gone.code(), gone.what());
    } catch (const ServiceSilent &silent) {
        partition_->leave(silent);
        refuse(silent.code(), silent.what());
    } catch (const Ack &ack) {
        refuse(ack.code(), ack.what());
    } catch (const std::exception &error) {
        refuse(AckCode::system, error.what());
    }
}

bool Client::step_task() {
    const size_t answered = connection_.output().size();
    try {
        Context now = context();
        if (task_->step(now)) {
            task_.reset();
        }
        return true;
    } catch (const std::exception &) {
        connection_.output().resize(answered); // it may end in the middle of a line
        refuse_current();
    }
    return false;
}

void Client::refuse(AckCode code, const std::string &text) {
    Reply(connection_.output())
        .raw(fmt::format("ACK [{}@{}] {{{}}} ", static_cast<int>(code), in_list_ ? at_ : 0,
                         command_));
    for (const char c : text) {
        connection_.output() += c == '\n' || c == '\r' ? ' ' : c;
    }
    connection_.output() += '\n';
}

void Client::notify(const Subsystems &changed) {
    changed_ |= changed;
    tell_changes();
}

void Client::wait_for(const Subsystems &wanted) {
    waiting_ = wanted;
    idle_ = true;
}

void Client::tell_changes() {
    const Subsystems told = changed_ & waiting_;
    if (!idle_ || told.none()) {
        return;
    }
    changed_ &= ~told;
    idle_ = false;
    Reply reply(connection_.output());
    for (size_t i = 0; i < subsystem_names.size(); ++i) {
        if (told[i]) {
            reply.pair("changed", subsystem_names[i]);
        }
    }
    reply.raw("OK\n");
}

} // namespace vantro::mpd
