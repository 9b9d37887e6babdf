#include "service/catalogue/database/database.h"

#include <cerrno>
#include <new>
#include <utility>

#include <fmt/format.h>
#include <sqlite3.h>

#include "service/error.h"

namespace vantro::service::catalogue {

namespace {

// How long a statement waits for the lock of another connection, which holds it only briefly.
constexpr int busy_ms = 10'000;

// Only one process at a time uses the state directory, so the index of the write-ahead log can be
// in memory instead of a file. On a full disk that file could not be made, and nothing could be
// read.
constexpr const char *one_process = "unix-excl";

// The part of an extended result code that states the kind of failure.
int primary_code(int code) {
    return code & 0xFF;
}

bool tells_damage(int code) {
    const int primary = primary_code(code);
    return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB || primary == SQLITE_FORMAT;
}

bool is_no_memory(int code) {
    return primary_code(code) == SQLITE_NOMEM || code == SQLITE_IOERR_NOMEM;
}

// All failures of SQLite become errors here. `system_error` is the error of the failed system call;
// 0 if none failed or the error is unknown.
Error error_of_sqlite(int code, int system_error, bool damaged, std::string text) {
    if (damaged) {
        return Error::damage(Error::Origin::catalogue, std::move(text));
    }
    if (primary_code(code) == SQLITE_FULL) {
        system_error = ENOSPC;
    }
    return {Error::Origin::catalogue, system_error != 0 ? system_error : EIO, std::move(text)};
}

} // namespace

Rows::Rows(Database &database, sqlite3_stmt *statement, bool *busy)
    : database_(database), statement_(statement), busy_(busy) {}

Rows::~Rows() {
    if (!busy_) {
        sqlite3_finalize(statement_);
        return;
    }
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
    *busy_ = false;
}

bool Rows::next() {
    const int result = sqlite3_step(statement_);
    if (result == SQLITE_ROW) {
        return true;
    }
    if (result != SQLITE_DONE) {
        database_.fail("cannot be used");
    }
    return false;
}

int64_t Rows::integer(int column) const {
    return sqlite3_column_int64(statement_, column);
}

std::string_view Rows::text(int column) const {
    const void *bytes = sqlite3_column_blob(statement_, column);
    const int size = sqlite3_column_bytes(statement_, column);
    if (!bytes && is_no_memory(sqlite3_errcode(database_.handle_))) {
        throw std::bad_alloc();
    }
    return bytes ? std::string_view(static_cast<const char *>(bytes), static_cast<size_t>(size))
                 : std::string_view();
}

void Rows::bind(int at, int64_t value) {
    if (sqlite3_bind_int64(statement_, at, value) != SQLITE_OK) {
        database_.fail("cannot bind a number");
    }
}

void Rows::bind(int at, std::string_view value) {
    const char *text = value.data() ? value.data() : "";
    if (sqlite3_bind_text64(statement_, at, text, value.size(), SQLITE_TRANSIENT, SQLITE_UTF8) !=
        SQLITE_OK) {
        database_.fail("cannot bind a text");
    }
}

void Rows::bind(int at, Blob value) {
    const char *bytes = value.bytes.data() ? value.bytes.data() : "";
    if (sqlite3_bind_blob64(statement_, at, bytes, value.bytes.size(), SQLITE_TRANSIENT) !=
        SQLITE_OK) {
        database_.fail("cannot bind bytes");
    }
}

Database::Database(const std::filesystem::path &file, Access access, int cache_kib) {
    const int flags = SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_READWRITE |
                      (access == Access::write ? SQLITE_OPEN_CREATE : 0);
    if (sqlite3_open_v2(file.c_str(), &handle_, flags, one_process) != SQLITE_OK) {
        const int code = handle_ ? sqlite3_extended_errcode(handle_) : SQLITE_NOMEM;
        const int system_error = handle_ ? sqlite3_system_errno(handle_) : 0;
        sqlite3_close(handle_);
        if (is_no_memory(code)) {
            throw std::bad_alloc();
        }
        throw error_of_sqlite(code, system_error, tells_damage(code),
                              fmt::format("cannot be opened: {}", sqlite3_errstr(code)));
    }
    try {
        sqlite3_extended_result_codes(handle_, 1);
        sqlite3_busy_timeout(handle_, busy_ms);
        script(
            fmt::format("PRAGMA cache_size = -{}; PRAGMA temp_store = MEMORY", cache_kib).c_str());
        // Deleted texts need not be overwritten: they come from the music, which users can read
        // anyway. After a power cut the last seconds may be missing; they are scanned again.
        script(access == Access::write ? "PRAGMA secure_delete = OFF; PRAGMA synchronous = NORMAL"
                                       : "PRAGMA query_only = ON");
    } catch (...) {
        sqlite3_close(handle_);
        throw;
    }
}

Database::~Database() {
    for (const auto &[sql, each] : kept_) {
        sqlite3_finalize(each.statement);
    }
    sqlite3_close(handle_);
}

sqlite3_stmt *Database::prepare(const char *sql, bool *&busy) {
    Kept &kept = kept_[sql];
    if (kept.statement && !kept.busy) {
        busy = &kept.busy;
        *busy = true;
        return kept.statement;
    }
    sqlite3_stmt *statement = nullptr;
    if (sqlite3_prepare_v3(handle_, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr) !=
        SQLITE_OK) {
        // SQLITE_ERROR means that the statement names a table that the file does not have. Any
        // other failure, such as a failed read of the schema, does not mean that the file is
        // damaged.
        const int code = sqlite3_extended_errcode(handle_);
        fail("has unexpected contents", code == SQLITE_ERROR || tells_damage(code));
    }
    if (kept.statement) {
        return statement; // the cached one is in use by a caller
    }
    kept.statement = statement;
    busy = &kept.busy;
    *busy = true;
    return statement;
}

void Database::script(const char *sql) {
    if (sqlite3_exec(handle_, sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
        fail("cannot be set up");
    }
}

int64_t Database::last_id() const {
    return sqlite3_last_insert_rowid(handle_);
}

bool Database::in_transaction() const {
    return sqlite3_get_autocommit(handle_) == 0;
}

void Database::fail(const char *what) const {
    fail(what, tells_damage(sqlite3_extended_errcode(handle_)));
}

void Database::fail(const char *what, bool damaged) const {
    const int code = sqlite3_extended_errcode(handle_);
    if (is_no_memory(code)) {
        throw std::bad_alloc();
    }
    throw error_of_sqlite(code, sqlite3_system_errno(handle_), damaged,
                          fmt::format("{}: {}", what, sqlite3_errmsg(handle_)));
}

Transaction::Transaction(Database &database) : database_(database) {
    database_.run("BEGIN");
}

Transaction::~Transaction() {
    if (!open_ || !database_.in_transaction()) {
        return;
    }
    try {
        database_.run("ROLLBACK");
    } catch (const std::exception &) {
        // The failure itself has undone the transaction.
    }
}

void Transaction::commit() {
    database_.run("COMMIT");
    open_ = false;
}

} // namespace vantro::service::catalogue
