#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/crypt/CryptApi.h"
#include "platform/storage/Storage.h"
#include "platform/support/Home.h"
#include "platform/support/Support.h"

// Settings and searches through the whole floor, beside the database's bare statement for the same
// row. The home is a temporary folder of the program's own.

namespace {

constexpr int objects = 20'000;
const storage::Bytes noBytes;

class Home {
public:
    Home() {
        std::string pattern = std::filesystem::temp_directory_path() / "pkixcmp-bench-XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp");
        path_ = pattern;
        ::setenv("PKIXCMP_HOME", path_.c_str(), 1);
        fill();
    }
    ~Home() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

private:
    static void fill() {
        for (int i = 0; i < 100; ++i) {
            std::string path = "\\local\\bench\\" + std::to_string(i);
            support_registry_put_string(path.c_str(), "a text of forty characters or thereabouts");
        }
        support_registry_put_string("\\config\\bench\\machine", "a text");
        storage::Access state = storage::openForWriting(support::userHome());
        for (int i = 0; i < objects; ++i) addObject(state, i);
    }
    static void addObject(storage::Access& state, int i);
    std::filesystem::path path_;
};

storage::Bytes hashOf(int i) {
    storage::Bytes hash(20, static_cast<std::uint8_t>(i * 37));
    for (int k = 0; k < 4; ++k)
        hash[static_cast<std::size_t>(k)] = static_cast<std::uint8_t>(i >> (8 * k));
    return hash;
}

void Home::addObject(storage::Access& state, int i) {
    storage::Bytes encoded(830, static_cast<std::uint8_t>(i)), hash = hashOf(i);
    std::copy(hash.begin(), hash.end(), encoded.begin());
    storage::NewObject object{
        storage::ObjectKind::certificate, encoded, hash, hash, hash, hash, {}};
    state.stores().add("My", object, storage::IfPresent::refuse);
}

Home& home() {
    static Home only;
    return only;
}

void settingOfTheUser(benchmark::State& state) {
    home();
    for (auto _ : state) {
        TSupportRegistrySearchValue* value = nullptr;
        if (support_registry_find("\\local\\bench\\57", &value) != 0) state.SkipWithError("find");
        support_registry_value_free(value);
    }
}
BENCHMARK(settingOfTheUser);

void settingOfTheMachine(benchmark::State& state) {
    home();
    for (auto _ : state) {
        TSupportRegistrySearchValue* value = nullptr;
        if (support_registry_find("\\config\\bench\\machine", &value) != 0) {
            state.SkipWithError("find");
        }
        support_registry_value_free(value);
    }
}
BENCHMARK(settingOfTheMachine);

void bareStatementForASetting(benchmark::State& state) {
    home();
    sqlite3* database = nullptr;
    sqlite3_stmt* query = nullptr;
    sqlite3_open((support::userHome() / "pkixcmp.db").c_str(), &database);
    sqlite3_prepare_v2(database, "SELECT type, content FROM settings WHERE key=?1 AND name=?2", -1,
                       &query, nullptr);
    const std::string key("local\0bench", 11);
    for (auto _ : state) {
        sqlite3_bind_blob(query, 1, key.data(), static_cast<int>(key.size()), SQLITE_STATIC);
        sqlite3_bind_blob(query, 2, "57", 2, SQLITE_STATIC);
        if (sqlite3_step(query) != SQLITE_ROW) state.SkipWithError("step");
        sqlite3_reset(query);
    }
    sqlite3_finalize(query);
    sqlite3_close(database);
}
BENCHMARK(bareStatementForASetting);

void settingUpdate(benchmark::State& state) {
    home();
    auto change = [](const char* present, void*) {
        thread_local std::string next;
        next = std::to_string(present == nullptr ? 1 : std::atol(present) + 1);
        return next.c_str();
    };
    for (auto _ : state) support_registry_update_string("\\local\\certnum", change, nullptr);
}
BENCHMARK(settingUpdate)->UseRealTime();

void objectByHash(benchmark::State& state) {
    home();
    const std::filesystem::path folder = support::userHome();
    int i = 0;
    for (auto _ : state) {
        storage::Bytes hash = hashOf(i = (i + 7919) % objects);
        storage::Access held = storage::openForReading(folder);
        auto page = held.stores().find(
            {"My", storage::ObjectKind::certificate, storage::SearchBy::hash, hash}, 0, 4);
        if (page.objects.size() != 1) state.SkipWithError("find");
    }
}
BENCHMARK(objectByHash);

void walkOfAll(benchmark::State& state) {
    home();
    const std::filesystem::path folder = support::userHome();
    for (auto _ : state) {
        std::int64_t after = 0;
        std::size_t count = 0;
        for (storage::Page page{{}, true}; page.more;) {
            storage::Access held = storage::openForReading(folder);
            page = held.stores().find(
                {"My", storage::ObjectKind::certificate, storage::SearchBy::any, noBytes}, after,
                64);
            count += page.objects.size();
            if (!page.objects.empty()) after = page.objects.back().row;
        }
        if (count < objects) state.SkipWithError("walk");
    }
    state.SetItemsProcessed(state.iterations() * objects);
}
BENCHMARK(walkOfAll)->Unit(benchmark::kMillisecond);

void objectAdded(benchmark::State& state) {
    home();
    int i = objects;
    for (auto _ : state) {
        storage::Access held = storage::openForWriting(support::userHome());
        storage::Bytes hash = hashOf(i++), encoded(830, 1);
        std::copy(hash.begin(), hash.end(), encoded.begin());
        held.stores().add("Added",
                          {storage::ObjectKind::certificate, encoded, hash, hash, hash, hash, {}},
                          storage::IfPresent::refuse);
    }
}
BENCHMARK(objectAdded)->UseRealTime();

}  // namespace
