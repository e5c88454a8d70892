#include <chrono>
#include <string>
#include <thread>

#include "platform/storage/SqliteConnection.h"

// The tables, and how a database is told to be ours. A change of the tables raises the version and
// brings a step here that lifts a database of the version before.

namespace storage::sqlite {

namespace {

constexpr std::int64_t applicationId = 0x504B4958;  // "PKIX"
constexpr std::int64_t schemaVersion = 1;

// settings.key: components of the path, each followed by the octet 0 unless it is the last, so that
// what stands below a key is one range of the index. objects.id is never used twice.
constexpr const char* tables = R"sql(
    CREATE TABLE settings(
        key BLOB NOT NULL, name BLOB NOT NULL, type INTEGER NOT NULL, content NOT NULL,
        PRIMARY KEY(key, name)) WITHOUT ROWID;
    CREATE TABLE stores(id INTEGER PRIMARY KEY, name BLOB NOT NULL UNIQUE);
    CREATE TABLE objects(
        id INTEGER PRIMARY KEY AUTOINCREMENT, store INTEGER NOT NULL, kind INTEGER NOT NULL,
        hash BLOB NOT NULL, key_id BLOB NOT NULL, subject BLOB NOT NULL, issuer BLOB NOT NULL,
        encoded BLOB NOT NULL);
    CREATE INDEX objects_any ON objects(store, kind);
    CREATE INDEX objects_hash ON objects(store, kind, hash);
    CREATE INDEX objects_key_id ON objects(store, kind, key_id);
    CREATE INDEX objects_subject ON objects(store, kind, subject);
    CREATE INDEX objects_issuer ON objects(store, kind, issuer);
    CREATE TABLE properties(
        object INTEGER NOT NULL, id INTEGER NOT NULL, content BLOB NOT NULL,
        PRIMARY KEY(object, id)) WITHOUT ROWID;
)sql";

std::int64_t askNumber(Connection& connection, const char* sql) {
    Statement statement = connection.use(sql);
    return statement.step() ? statement.number(0) : 0;
}

/// Turns write-ahead logging on. While another process does the same the engine may refuse without
/// waiting, so the wait is here.
void useWriteAheadLog(Connection& connection) {
    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    for (;;) {
        try {
            Statement statement = connection.use("PRAGMA journal_mode=WAL");
            if (statement.step() && statement.text(0) == "wal") return;
        } catch (const Error& error) {
            if (error.fault != Fault::busy) throw;
        }
        if (std::chrono::steady_clock::now() > end) {
            throw Error(Fault::busy, "the database does not take up write-ahead logging");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

/// The marks are read within one transaction: another process may be setting them.
bool marksAreOurs(Connection& connection) {
    std::int64_t application = askNumber(connection, "PRAGMA application_id");
    std::int64_t version = askNumber(connection, "PRAGMA user_version");
    if (application == applicationId && version == schemaVersion) return true;
    if (application == applicationId && version > schemaVersion) {
        throw Error(Fault::newer, "the database is of version " + std::to_string(version) +
                                      ", written by a later release");
    }
    if (application == 0 && version == 0 &&
        askNumber(connection, "SELECT count(*) FROM sqlite_master") == 0) {
        return false;
    }
    throw Error(Fault::damaged, "the file is a database of something else");
}

}  // namespace

bool hasSchema(Connection& connection) {
    ReadTransaction transaction(connection);
    return marksAreOurs(connection);
}

void makeSchema(Connection& connection) {
    useWriteAheadLog(connection);
    WriteTransaction transaction(connection);
    if (marksAreOurs(connection)) return;
    connection.execute(tables);
    connection.execute(("PRAGMA application_id=" + std::to_string(applicationId)).c_str());
    connection.execute(("PRAGMA user_version=" + std::to_string(schemaVersion)).c_str());
    transaction.commit();
}

}  // namespace storage::sqlite
