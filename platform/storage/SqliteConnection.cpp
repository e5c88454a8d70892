#include "platform/storage/SqliteConnection.h"

#include <cerrno>
#include <chrono>
#include <new>
#include <random>
#include <thread>

namespace storage::sqlite {

namespace {

constexpr auto longestWait = std::chrono::seconds(30);
constexpr auto longestSleep = std::chrono::microseconds(4000);

Fault faultOf(int code, int systemError) {
    switch (code & 0xFF) {
        case SQLITE_PERM:
        case SQLITE_AUTH:
        case SQLITE_READONLY:
            return Fault::noRights;
        case SQLITE_CANTOPEN:
            return systemError == EACCES || systemError == EPERM || systemError == EROFS ||
                           systemError == ENOENT || systemError == ENOTDIR
                       ? Fault::noRights
                       : Fault::failed;
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
        case SQLITE_SCHEMA:
            return Fault::damaged;
        case SQLITE_ERROR:
            return Fault::damaged;  // a table or column of ours is not there
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            return Fault::busy;
        case SQLITE_NOMEM:
            return Fault::noMemory;
        default:
            return Fault::failed;
    }
}

/// How one thread waits for a lock: short sleeps of random length, so that of many writers each
/// gets its turn soon after the lock is free.
int waitForLock(void* begun, int tries) {
    thread_local std::minstd_rand random{std::random_device{}()};
    auto& begin = *static_cast<std::chrono::steady_clock::time_point*>(begun);
    auto now = std::chrono::steady_clock::now();
    if (tries == 0) begin = now;
    if (now - begin > longestWait) return 0;
    auto most = std::min(longestSleep, std::chrono::microseconds(100) * (1 << std::min(tries, 6)));
    std::uniform_int_distribution<long> length(most.count() / 4, most.count());
    std::this_thread::sleep_for(std::chrono::microseconds(length(random)));
    return 1;
}

}  // namespace

void fail(sqlite3* database, int code) {
    int extended = database != nullptr ? sqlite3_extended_errcode(database) : code;
    if ((extended & 0xFF) != (code & 0xFF)) extended = code;
    Fault fault = faultOf(extended, database != nullptr ? sqlite3_system_errno(database) : 0);
    if (fault == Fault::noMemory) throw std::bad_alloc();
    throw Error(fault, database != nullptr ? sqlite3_errmsg(database) : sqlite3_errstr(code));
}

Statement::~Statement() {
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
}

void Statement::check(int code) {
    if (code != SQLITE_OK) fail(database_, code);
}

void Statement::bind(int index, std::int64_t value) {
    check(sqlite3_bind_int64(statement_, index, value));
}

void Statement::bind(int index, std::string_view text) {
    const char* data = text.data() != nullptr ? text.data() : "";
    check(sqlite3_bind_text64(statement_, index, data, text.size(), SQLITE_STATIC, SQLITE_UTF8));
}

void Statement::bind(int index, BytesView bytes) {
    const void* data = bytes.data() != nullptr ? static_cast<const void*>(bytes.data()) : "";
    check(sqlite3_bind_blob64(statement_, index, data, bytes.size(), SQLITE_STATIC));
}

bool Statement::step() {
    int code = sqlite3_step(statement_);
    if (code == SQLITE_ROW) return true;
    if (code != SQLITE_DONE) fail(database_, code);
    return false;
}

void Statement::run() {
    while (step()) {
    }
}

std::string Statement::text(int column) const {
    const void* data = sqlite3_column_blob(statement_, column);
    int size = sqlite3_column_bytes(statement_, column);
    return data != nullptr ? std::string(static_cast<const char*>(data), size) : std::string();
}

Bytes Statement::bytes(int column) const {
    auto* data = static_cast<const std::uint8_t*>(sqlite3_column_blob(statement_, column));
    int size = sqlite3_column_bytes(statement_, column);
    return data != nullptr ? Bytes(data, data + size) : Bytes();
}

Connection::Connection(const std::filesystem::path& file) {
    // The file is opened without making it: it is made beforehand, for its owner alone.
    constexpr int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
    try {
        int code = sqlite3_open_v2(file.c_str(), &database_, flags, nullptr);
        if (code != SQLITE_OK) fail(database_, code);
        configure();
    } catch (...) {
        sqlite3_close_v2(database_);
        throw;
    }
}

void Connection::configure() {
    sqlite3_busy_handler(database_, waitForLock, &waitBegan_);
    sqlite3_db_config(database_, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(database_, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    execute("PRAGMA synchronous=FULL");
    execute("PRAGMA cell_size_check=ON");
}

Connection::~Connection() {
    if (database_ == nullptr) return;
    for (auto& [sql, statement] : kept_) sqlite3_finalize(statement);
    sqlite3_close_v2(database_);
}

Statement Connection::use(const char* sql) {
    for (auto& [text, statement] : kept_) {
        if (text == sql) return {database_, statement};
    }
    sqlite3_stmt* statement = nullptr;
    kept_.reserve(kept_.size() + 1);
    int code =
        sqlite3_prepare_v3(database_, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    if (code != SQLITE_OK) fail(database_, code);
    kept_.emplace_back(sql, statement);
    return {database_, statement};
}

void Connection::execute(const char* sql) {
    int code = sqlite3_exec(database_, sql, nullptr, nullptr, nullptr);
    if (code != SQLITE_OK) fail(database_, code);
}

namespace {

void rollBack(Connection& connection) {
    try {
        connection.use("ROLLBACK").run();
    } catch (...) {
        // The engine has rolled back by itself, as it does after a failed write.
    }
}

}  // namespace

ReadTransaction::ReadTransaction(Connection& connection) : connection_(connection) {
    connection_.use("BEGIN").run();
}

ReadTransaction::~ReadTransaction() { rollBack(connection_); }

WriteTransaction::WriteTransaction(Connection& connection) : connection_(connection) {
    connection_.use("BEGIN IMMEDIATE").run();
}

WriteTransaction::~WriteTransaction() {
    if (open_) rollBack(connection_);
}

void WriteTransaction::commit() {
    connection_.use("COMMIT").run();
    open_ = false;
}

}  // namespace storage::sqlite
