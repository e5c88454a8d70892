#pragma once

#include <sqlite3.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/storage/Storage.h"

// A connection to one database, its kept statements and its write transactions. All of them belong
// to one thread at a time.

namespace storage::sqlite {

/// Throws the failure of a connection's last call.
[[noreturn]] void fail(sqlite3* database, int code);

/// A kept statement in use: bound from 1, stepped, and put back clean when this goes. Bound texts
/// and bytes are referred to, not copied.
class Statement {
public:
    Statement(sqlite3* database, sqlite3_stmt* statement)
        : database_(database), statement_(statement) {}
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;
    ~Statement();

    template <class... Values>
    Statement& bindAll(const Values&... values) {
        int index = 0;
        (bind(++index, values), ...);
        return *this;
    }
    void bind(int index, std::int64_t value);
    void bind(int index, std::string_view text);
    void bind(int index, BytesView bytes);

    /// True when there is a row.
    bool step();
    /// Steps a statement that gives no rows.
    void run();

    int columnType(int column) const { return sqlite3_column_type(statement_, column); }
    std::int64_t number(int column) const { return sqlite3_column_int64(statement_, column); }
    std::string text(int column) const;
    Bytes bytes(int column) const;

private:
    void check(int code);

    sqlite3* database_;
    sqlite3_stmt* statement_;
};

class Connection {
public:
    /// Opens a database that is there. Throws `Error`.
    explicit Connection(const std::filesystem::path& file);
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection();

    /// The statement of a text, prepared once. The text's address is its name: pass literals.
    Statement use(const char* sql);
    void execute(const char* sql);
    /// Rows that the last statement changed.
    int changes() const { return sqlite3_changes(database_); }
    std::int64_t lastRow() const { return sqlite3_last_insert_rowid(database_); }
    /// Leaves everything as it is and frees nothing: in a forked process the connection is still
    /// its parent's.
    void abandon() { database_ = nullptr; }

private:
    void configure();

    sqlite3* database_ = nullptr;
    std::chrono::steady_clock::time_point waitBegan_;  // the present wait for a lock
    std::vector<std::pair<const char*, sqlite3_stmt*>> kept_;
};

/// The octets of a text, for columns that hold names byte for byte.
inline BytesView view(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

/// A transaction that holds the write lock from its beginning, so that it never fails half-way for
/// another writer. Rolled back unless committed.
class WriteTransaction {
public:
    explicit WriteTransaction(Connection& connection);
    WriteTransaction(const WriteTransaction&) = delete;
    WriteTransaction& operator=(const WriteTransaction&) = delete;
    ~WriteTransaction();
    void commit();

private:
    Connection& connection_;
    bool open_ = true;
};

/// What is read while this lives is of one moment.
class ReadTransaction {
public:
    explicit ReadTransaction(Connection& connection);
    ReadTransaction(const ReadTransaction&) = delete;
    ReadTransaction& operator=(const ReadTransaction&) = delete;
    ~ReadTransaction();

private:
    Connection& connection_;
};

/// Whether the database holds our tables, in the version that this source knows. False for an empty
/// one; anything else throws.
bool hasSchema(Connection& connection);
/// Makes the tables in an empty database; several processes may try at once.
void makeSchema(Connection& connection);

std::unique_ptr<Settings> makeSettings(Connection& connection);
std::unique_ptr<Stores> makeStores(Connection& connection);

}  // namespace storage::sqlite
