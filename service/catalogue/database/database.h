// One connection to the catalogue's file. Used by one thread at a time.
//
// Statements are prepared once for each text and kept, so texts are string literals.
//
// If the file cannot be read or written, or is not a catalogue, all functions throw an Error of the
// catalogue; they throw std::bad_alloc if there is no memory. A failing disk can look like damage
// once, so callers act on Error::is_damage() only after find_damage() has checked the file.
#ifndef VANTRO_SERVICE_CATALOGUE_DATABASE_DATABASE_H
#define VANTRO_SERVICE_CATALOGUE_DATABASE_DATABASE_H

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_map>

struct sqlite3;
struct sqlite3_stmt;

namespace vantro::service::catalogue {

// Bytes that are not text.
struct Blob {
    std::string_view bytes;
};

class Database;

// The rows of a running statement. The destructor makes the statement free for its next use.
class Rows {
  public:
    ~Rows();
    Rows(const Rows &) = delete;
    Rows &operator=(const Rows &) = delete;

    bool next();

    int64_t integer(int column) const;
    int32_t small(int column) const { return static_cast<int32_t>(integer(column)); }
    // Text or bytes; valid until next().
    std::string_view text(int column) const;

  private:
    friend class Database;
    Rows(Database &database, sqlite3_stmt *statement, bool *busy);
    template <typename... Values>
    Rows(Database &database, sqlite3_stmt *statement, bool *busy, const Values &...values)
        : Rows(database, statement, busy) {
        int at = 0;
        (bind_any(++at, values), ...);
    }

    void bind(int at, int64_t value);
    void bind(int at, std::string_view value);
    void bind(int at, Blob value);
    template <typename Value>
    void bind_any(int at, const Value &value) {
        if constexpr (std::is_integral_v<Value> || std::is_enum_v<Value>) {
            bind(at, static_cast<int64_t>(value));
        } else if constexpr (std::is_same_v<Value, Blob>) {
            bind(at, value);
        } else {
            bind(at, std::string_view(value));
        }
    }

    Database &database_;
    sqlite3_stmt *const statement_;
    bool *const busy_; // null: the statement is not cached, and belongs to this object only
};

class Database {
  public:
    enum class Access { read, write };

    // `cache_kib` bounds the pages of the file that are kept in memory.
    Database(const std::filesystem::path &file, Access access, int cache_kib);
    ~Database();
    Database(const Database &) = delete;
    Database &operator=(const Database &) = delete;

    // Binds the values, numbers and texts and Blobs, to ?1, ?2...
    template <typename... Values>
    Rows query(const char *sql, const Values &...values) {
        bool *busy = nullptr;
        sqlite3_stmt *const statement = prepare(sql, busy);
        return Rows(*this, statement, busy, values...);
    }

    // Runs a statement and ignores its rows.
    template <typename... Values>
    void run(const char *sql, const Values &...values) {
        query(sql, values...).next();
    }

    // The first column of the first row, `otherwise` if there is no row.
    template <typename... Values>
    int64_t number(int64_t otherwise, const char *sql, const Values &...values) {
        Rows rows = query(sql, values...);
        return rows.next() ? rows.integer(0) : otherwise;
    }

    // Runs several statements without values.
    void script(const char *sql);

    int64_t last_id() const;
    bool in_transaction() const;

  private:
    friend class Rows;
    struct Kept {
        sqlite3_stmt *statement = nullptr;
        bool busy = false;
    };

    sqlite3_stmt *prepare(const char *sql, bool *&busy);
    [[noreturn]] void fail(const char *what) const;
    [[noreturn]] void fail(const char *what, bool damaged) const;

    sqlite3 *handle_ = nullptr;
    std::unordered_map<const char *, Kept> kept_;
};

// All statements between constructor and commit() take effect together or not at all. Reads within
// a transaction see one state.
class Transaction {
  public:
    explicit Transaction(Database &database);
    ~Transaction(); // undoes all statements that were not committed
    Transaction(const Transaction &) = delete;
    Transaction &operator=(const Transaction &) = delete;
    void commit();

  private:
    Database &database_;
    bool open_ = true;
};

} // namespace vantro::service::catalogue

#endif
