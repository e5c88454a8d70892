#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <string>

/// Runs a statement on a database behind the back of its owner.
inline void sql(const std::filesystem::path& file, const std::string& statement) {
    sqlite3* database = nullptr;
    sqlite3_open(file.c_str(), &database);
    EXPECT_EQ(sqlite3_exec(database, statement.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
        << statement;
    sqlite3_close(database);
}
