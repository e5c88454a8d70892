#include <algorithm>

#include "platform/storage/SqliteConnection.h"

namespace storage::sqlite {

namespace {

/// The key's octets in the table: see the schema.
std::string keyOctets(std::string_view key) {
    std::string octets(key);
    std::replace(octets.begin(), octets.end(), '\\', '\0');
    return octets;
}

/// Reads type and content from the columns 0 and 1.
Setting settingOf(std::string name, const Statement& row) {
    Setting setting{std::move(name), static_cast<int>(row.number(0)), {}};
    switch (row.columnType(1)) {
        case SQLITE_INTEGER:
            setting.content = row.number(1);
            break;
        case SQLITE_TEXT:
            setting.content = row.text(1);
            break;
        default:
            setting.content = row.bytes(1);
    }
    return setting;
}

class SqliteSettings : public Settings {
public:
    explicit SqliteSettings(Connection& connection) : connection_(connection) {}

    std::optional<Setting> find(std::string_view key, std::string_view name) override {
        std::string octets = keyOctets(key);
        Statement query =
            connection_.use("SELECT type, content FROM settings WHERE key=?1 AND name=?2");
        query.bindAll(view(octets), view(name));
        if (!query.step()) return std::nullopt;
        return settingOf(std::string(name), query);
    }

    void put(std::string_view key, const Setting& setting) override {
        WriteTransaction transaction(connection_);
        write(key, setting);
        transaction.commit();
    }

    bool erase(std::string_view key, std::string_view name) override {
        std::string octets = keyOctets(key);
        WriteTransaction transaction(connection_);
        connection_.use("DELETE FROM settings WHERE key=?1 AND name=?2")
            .bindAll(view(octets), view(name))
            .run();
        bool erased = connection_.changes() != 0;
        transaction.commit();
        return erased;
    }

    void update(std::string_view key, std::string_view name, const Change& change) override {
        WriteTransaction transaction(connection_);
        std::optional<Setting> present = find(key, name);
        std::optional<Setting> wanted = change(present ? &*present : nullptr);
        if (!wanted) return;
        wanted->name = name;
        write(key, *wanted);
        transaction.commit();
    }

    std::vector<Setting> settings(std::string_view key, std::string_view after,
                                  std::size_t limit) override {
        std::string octets = keyOctets(key);
        std::vector<Setting> found;
        Statement query = connection_.use(
            "SELECT type, content, name FROM settings WHERE key=?1 AND name>?2 "
            "ORDER BY name LIMIT ?3");
        query.bindAll(view(octets), view(after), static_cast<std::int64_t>(limit));
        while (query.step()) found.push_back(settingOf(query.text(2), query));
        return found;
    }

    std::vector<std::string> keys(std::string_view key, std::string_view after,
                                  std::size_t limit) override {
        std::string prefix = keyOctets(key);
        if (!prefix.empty()) prefix.push_back('\0');
        // Each step leaps over all that stands below the key found: its octets, then anything
        // from 1.
        std::string from = prefix;
        from.append(after).push_back('\1');
        std::vector<std::string> found;
        while (found.size() < limit) {
            Statement query =
                connection_.use("SELECT key FROM settings WHERE key>=?1 ORDER BY key LIMIT 1");
            query.bindAll(view(from));
            if (!query.step()) break;
            std::string next = query.text(0);
            if (!next.starts_with(prefix)) break;
            found.push_back(
                next.substr(prefix.size(), next.find('\0', prefix.size()) - prefix.size()));
            from.assign(prefix).append(found.back()).push_back('\1');
        }
        return found;
    }

private:
    void write(std::string_view key, const Setting& setting) {
        std::string octets = keyOctets(key);
        Statement query = connection_.use(
            "INSERT OR REPLACE INTO settings(key, name, type, content) VALUES(?1, ?2, ?3, ?4)");
        query.bindAll(view(octets), view(setting.name), static_cast<std::int64_t>(setting.type));
        if (auto* number = std::get_if<std::int64_t>(&setting.content)) query.bind(4, *number);
        if (auto* text = std::get_if<std::string>(&setting.content)) {
            query.bind(4, std::string_view(*text));
        }
        if (auto* bytes = std::get_if<Bytes>(&setting.content)) query.bind(4, BytesView(*bytes));
        query.run();
    }

    Connection& connection_;
};

}  // namespace

std::unique_ptr<Settings> makeSettings(Connection& connection) {
    return std::make_unique<SqliteSettings>(connection);
}

}  // namespace storage::sqlite
