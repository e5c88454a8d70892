#include <algorithm>
#include <deque>
#include <map>
#include <mutex>
#include <tuple>

#include "platform/support/SettingsGuard.h"
#include "platform/support/State.h"

using storage::Setting;
using support::Side;
using support::settings::guarded;
using support::settings::require;

// Walks over the values of a key. A walk holds a run of values and the name that the next run
// begins behind, so nothing is locked between two steps.

namespace {

constexpr std::size_t pageSize = 64;

bool isKey(const Setting& setting) { return setting.type == SUPPORT_REGISTRY_KEY; }

auto order(const Setting& setting) {
    return std::tuple(std::string_view(setting.name), isKey(setting));
}

struct Walk {
    std::string key;
    bool withKeys = false;
    std::deque<Setting> ahead;
    std::string after;  // the last name of the runs fetched
    bool exhausted = false;
    // Where the walk stands: the value given last.
    std::string name;
    bool nameIsKey = false;
    bool ended = false;

    auto place() const { return std::tie(key, withKeys, name, nameIsKey, ended); }
    void fetch();
    std::optional<Setting> next();
};

/// One side's next values behind a name; both sides' are merged by who asks.
std::vector<Setting> fetchFrom(Side side, const Walk& walk) {
    storage::Access state = support::openForReading(side, support::home(side));
    if (!state) return {};
    std::vector<Setting> found = state.settings().settings(walk.key, walk.after, pageSize);
    if (!walk.withKeys) return found;
    for (std::string& name : state.settings().keys(walk.key, walk.after, pageSize)) {
        found.push_back({std::move(name), SUPPORT_REGISTRY_KEY, std::string()});
    }
    return found;
}

/// Each source gave its first `pageSize` names, so the first `pageSize` of all are in order and
/// complete; a key and a value of one name stay together.
void Walk::fetch() {
    std::vector<Setting> found = fetchFrom(Side::user, *this);
    auto machines = fetchFrom(Side::machine, *this);
    std::move(machines.begin(), machines.end(), std::back_inserter(found));
    // The user's values stand in front of the machine's of the same name and hide them.
    std::stable_sort(found.begin(), found.end(),
                     [](const auto& a, const auto& b) { return order(a) < order(b); });
    auto end = std::unique(found.begin(), found.end(),
                           [](const auto& a, const auto& b) { return order(a) == order(b); });
    found.erase(end, found.end());
    exhausted = found.size() < pageSize;
    while (found.size() > pageSize && found[pageSize - 1].name != found.back().name) {
        found.pop_back();
    }
    if (!found.empty()) after = found.back().name;
    ahead.assign(std::make_move_iterator(found.begin()), std::make_move_iterator(found.end()));
}

std::optional<Setting> Walk::next() {
    if (ahead.empty() && !exhausted) fetch();
    if (ahead.empty()) {
        ended = true;
        return std::nullopt;
    }
    Setting setting = std::move(ahead.front());
    ahead.pop_front();
    name = setting.name;
    nameIsKey = isKey(setting);
    return setting;
}

/// The open walks by their handles.
struct Walks {
    std::mutex lock;
    std::map<TSupportRegistrySearch, Walk> open;
    TSupportRegistrySearch last = 0;

    TSupportRegistrySearch add(Walk walk) {
        std::lock_guard guard(lock);
        open.emplace(++last, std::move(walk));
        return last;
    }
    Walk& at(TSupportRegistrySearch search) {
        std::lock_guard guard(lock);
        auto found = open.find(search);
        require(found != open.end(), SUPPORT_INVALID);
        return found->second;
    }
};

Walks& walks() {
    static Walks* const instance = new Walks;
    return *instance;
}

}  // namespace

int support_registry_search_open(const char* path, bool keys, TSupportRegistrySearch* search) {
    return guarded([&] {
        require(search != nullptr, SUPPORT_INVALID);
        *search = -1;
        Walk walk;
        walk.key = support::settings::joinedPath(path);
        walk.withKeys = keys;
        *search = walks().add(std::move(walk));
    });
}

int support_registry_search_next(TSupportRegistrySearch search,
                                 TSupportRegistrySearchValue** value) {
    return guarded([&] {
        require(value != nullptr, SUPPORT_INVALID);
        *value = nullptr;
        auto next = walks().at(search).next();
        require(next.has_value(), SUPPORT_NOT_FOUND);
        *value = new TSupportRegistrySearchValue{std::move(*next)};
    });
}

int support_registry_search_close(TSupportRegistrySearch search) {
    return guarded([&] {
        std::lock_guard guard(walks().lock);
        require(walks().open.erase(search) == 1, SUPPORT_INVALID);
    });
}

int support_registry_search_cmp(TSupportRegistrySearch a, TSupportRegistrySearch b) {
    int result = 1;
    int code = guarded([&] { result = walks().at(a).place() == walks().at(b).place() ? 0 : 1; });
    return code != SUPPORT_OK ? code : result;
}

int support_registry_search_cpy(TSupportRegistrySearch search, TSupportRegistrySearch* copy) {
    return guarded([&] {
        require(copy != nullptr, SUPPORT_INVALID);
        *copy = walks().add(Walk(walks().at(search)));
    });
}
