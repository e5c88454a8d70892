#include <string>

#include "platform/storage/SqliteConnection.h"

namespace storage::sqlite {

namespace {

/// Big objects end a page early, so that a page of long CRLs does not fill the memory.
constexpr std::size_t pageOctets = 1 << 20;

std::int64_t number(ObjectKind kind) { return static_cast<std::int64_t>(kind); }

/// One query a kind of search, each over the index of its name.
struct SearchQuery {
    std::string text;
    SearchQuery(const char* index, const char* condition)
        : text(std::string("SELECT id, encoded FROM objects INDEXED BY ") + index +
               " WHERE store=(SELECT s.id FROM stores s WHERE s.name=?1) AND kind=?2 AND id>?3" +
               condition + " ORDER BY id LIMIT ?4") {}
};

const char* queryFor(SearchBy by) {
    static const SearchQuery queries[] = {{"objects_any", ""},
                                          {"objects_hash", " AND hash=?5"},
                                          {"objects_key_id", " AND key_id=?5"},
                                          {"objects_subject", " AND subject=?5"},
                                          {"objects_issuer", " AND issuer=?5"}};
    return queries[static_cast<std::size_t>(by)].text.c_str();
}

class SqliteStores : public Stores {
public:
    explicit SqliteStores(Connection& connection) : connection_(connection) {}

    bool exists(std::string_view store) override { return idOf(store).has_value(); }

    bool create(std::string_view store) override {
        if (exists(store)) return false;
        WriteTransaction transaction(connection_);
        bool made = insertStore(store);
        transaction.commit();
        return made;
    }

    std::optional<std::string> nameAt(std::size_t index) override {
        Statement query =
            connection_.use("SELECT name FROM stores ORDER BY name LIMIT 1 OFFSET ?1");
        query.bindAll(static_cast<std::int64_t>(index));
        if (!query.step()) return std::nullopt;
        return query.text(0);
    }

    Added add(std::string_view store, const NewObject& object, IfPresent ifPresent) override {
        WriteTransaction transaction(connection_);
        insertStore(store);
        std::int64_t storeId = idOf(store).value();
        Added added;
        if (auto present = rowOf(storeId, object)) {
            added = {*present, true};
            if (ifPresent != IfPresent::replace) return added;
            connection_.use("DELETE FROM properties WHERE object=?1").bindAll(*present).run();
        } else {
            added.row = insertObject(storeId, object);
        }
        for (const Property& property : object.properties) {
            insertProperty(added.row, property.id, property.content);
        }
        transaction.commit();
        return added;
    }

    bool erase(std::int64_t row) override {
        WriteTransaction transaction(connection_);
        connection_.use("DELETE FROM properties WHERE object=?1").bindAll(row).run();
        connection_.use("DELETE FROM objects WHERE id=?1").bindAll(row).run();
        bool erased = connection_.changes() != 0;
        transaction.commit();
        return erased;
    }

    Page find(const Search& search, std::int64_t after, std::size_t limit) override {
        Page page;
        Statement query = connection_.use(queryFor(search.by));
        query.bindAll(view(search.store), number(search.kind), after,
                      static_cast<std::int64_t>(limit));
        if (search.by != SearchBy::any) query.bind(5, search.value);
        std::size_t octets = 0;
        while (octets < pageOctets && query.step()) {
            page.objects.push_back({query.number(0), query.bytes(1)});
            octets += page.objects.back().encoded.size();
        }
        page.more = page.objects.size() == limit || octets >= pageOctets;
        return page;
    }

    std::optional<Bytes> property(std::int64_t row, std::uint32_t id) override {
        Statement query =
            connection_.use("SELECT content FROM properties WHERE object=?1 AND id=?2");
        query.bindAll(row, static_cast<std::int64_t>(id));
        if (!query.step()) return std::nullopt;
        return query.bytes(0);
    }

    std::vector<Property> properties(std::int64_t row) override {
        Statement query = connection_.use("SELECT id, content FROM properties WHERE object=?1");
        query.bindAll(row);
        std::vector<Property> all;
        while (query.step()) {
            all.push_back({static_cast<std::uint32_t>(query.number(0)), query.bytes(1)});
        }
        return all;
    }

    bool setProperty(std::int64_t row, std::uint32_t id, const Bytes* content) override {
        WriteTransaction transaction(connection_);
        if (!isObject(row)) return false;
        if (content != nullptr) {
            insertProperty(row, id, *content);
        } else {
            connection_.use("DELETE FROM properties WHERE object=?1 AND id=?2")
                .bindAll(row, static_cast<std::int64_t>(id))
                .run();
        }
        transaction.commit();
        return true;
    }

private:
    std::optional<std::int64_t> idOf(std::string_view store) {
        Statement query = connection_.use("SELECT id FROM stores WHERE name=?1");
        query.bindAll(view(store));
        if (!query.step()) return std::nullopt;
        return query.number(0);
    }

    bool insertStore(std::string_view store) {
        connection_.use("INSERT OR IGNORE INTO stores(name) VALUES(?1)").bindAll(view(store)).run();
        return connection_.changes() != 0;
    }

    bool isObject(std::int64_t row) {
        Statement query = connection_.use("SELECT 1 FROM objects WHERE id=?1");
        query.bindAll(row);
        return query.step();
    }

    /// The object of the same bytes. The hash only leads to it: two objects may share one.
    std::optional<std::int64_t> rowOf(std::int64_t store, const NewObject& object) {
        Statement query = connection_.use(
            "SELECT id FROM objects WHERE store=?1 AND kind=?2 AND hash=?3 AND encoded=?4");
        query.bindAll(store, number(object.kind), object.hash, object.encoded);
        if (!query.step()) return std::nullopt;
        return query.number(0);
    }

    std::int64_t insertObject(std::int64_t store, const NewObject& object) {
        connection_
            .use(
                "INSERT INTO objects(store, kind, hash, key_id, subject, issuer, encoded) "
                "VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7)")
            .bindAll(store, number(object.kind), object.hash, object.keyIdentifier, object.subject,
                     object.issuer, object.encoded)
            .run();
        return connection_.lastRow();
    }

    void insertProperty(std::int64_t row, std::uint32_t id, const Bytes& content) {
        connection_.use("INSERT OR REPLACE INTO properties(object, id, content) VALUES(?1, ?2, ?3)")
            .bindAll(row, static_cast<std::int64_t>(id), BytesView(content))
            .run();
    }

    Connection& connection_;
};

}  // namespace

std::unique_ptr<Stores> makeStores(Connection& connection) {
    return std::make_unique<SqliteStores>(connection);
}

}  // namespace storage::sqlite
