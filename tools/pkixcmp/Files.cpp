#include "tools/pkixcmp/Files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>
#include <utility>

#include "capilite/Base64.h"
#include "tools/pkixcmp/Descriptor.h"
#include "tools/pkixcmp/Failure.h"
#include "tools/pkixcmp/Output.h"

namespace tool {
namespace {

constexpr std::size_t mostBytes = std::size_t{1} << 30;
constexpr std::string_view beginMark = "-----BEGIN ";
constexpr std::string_view endMark = "-----END ";

[[noreturn]] void fileFailure(const char* what, const std::string& path) {
    throw Failure("cannot " + std::string(what) + " " + path + ": " + std::strerror(errno));
}

void writeAll(int fd, std::string_view content, const std::string& path) {
    while (!content.empty()) {
        ssize_t written = ::write(fd, content.data(), content.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) fileFailure("write", path);
        content.remove_prefix(static_cast<std::size_t>(written));
    }
}

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

/// Whether no byte is a control character; DER holds them in its tags and lengths.
bool isText(std::string_view content) {
    return std::all_of(content.begin(), content.end(), [](char c) {
        return isSpace(c) || c == '\f' || static_cast<unsigned char>(c) >= 0x20;
    });
}

bool isBase64(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) {
        return isSpace(c) || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
               (c >= '0' && c <= '9') || c == '+' || c == '/' || c == '=';
    });
}

std::string decodeBase64(std::string_view text, const std::string& name) {
    std::string der(text.size(), 0);
    auto length = static_cast<unsigned int>(der.size());
    bool good =
        isBase64(text) && base64_decode(text.data(), static_cast<unsigned int>(text.size()),
                                        reinterpret_cast<unsigned char*>(der.data()), &length);
    if (!good || length == 0) throw Failure(name + ": the base64 text cannot be read");
    der.resize(length);
    return der;
}

/// The base64 of an armoured body, behind the header lines ("Proc-Type: …") where it has some.
std::string_view behindHeaders(std::string_view body) {
    std::size_t blank = std::min(body.find("\n\n"), body.find("\n\r\n"));
    std::size_t colon = body.find(':');
    return colon != body.npos && blank != body.npos && colon < blank ? body.substr(blank) : body;
}

std::vector<Armoured> readArmour(std::string_view text, const std::string& name) {
    std::vector<Armoured> objects;
    for (std::size_t at = text.find(beginMark); at != text.npos; at = text.find(beginMark, at)) {
        std::size_t label = at + beginMark.size();
        std::size_t labelEnd = text.find("-----", label);
        std::size_t body = labelEnd == text.npos ? text.npos : labelEnd + 5;
        std::size_t end = body == text.npos ? text.npos : text.find(endMark, body);
        if (end == text.npos) throw Failure(name + ": the armour has no end line");
        Armoured object{std::string(text.substr(label, labelEnd - label)), {}};
        if (object.label.find("PRIVATE KEY") != std::string::npos) {
            throw Failure(name + ": holds a private key, which is shown to nobody");
        }
        object.der = decodeBase64(behindHeaders(text.substr(body, end - body)), name);
        objects.push_back(std::move(object));
        at = end;
    }
    return objects;
}

/// Whether a device, pipe or socket stands at a path, which must never be replaced by a file.
bool isStream(const std::string& path) {
    struct stat present {};
    return ::stat(path.c_str(), &present) == 0 && !S_ISREG(present.st_mode) &&
           !S_ISDIR(present.st_mode);
}

void writeStream(const std::string& path, std::string_view content) {
    Descriptor stream(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
    if (stream.get() < 0) fileFailure("write", path);
    writeAll(stream.get(), content, path);
}

/// The file that a path means when it is a link, so that the link stays.
std::string behindLinks(const std::string& path) {
    std::unique_ptr<char, void (*)(void*)> real(::realpath(path.c_str(), nullptr), std::free);
    return real ? std::string(real.get()) : path;
}

bool endsIn(const std::string& text, std::string_view end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

}  // namespace

std::string readFile(const std::string& path) {
    bool standard = path == "-";
    Descriptor file(standard ? 0 : ::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.get() < 0) fileFailure("open", path);
    std::string content;
    char chunk[65536];
    for (;;) {
        ssize_t got = ::read(file.get(), chunk, sizeof chunk);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) fileFailure("read", path);
        if (got == 0) return content;
        content.append(chunk, static_cast<std::size_t>(got));
        if (content.size() > mostBytes) throw Failure(path + ": larger than 1 GiB");
    }
}

void writeFile(const std::string& path, std::string_view content) {
    if (path == "-") return printBytes(std::string(content));
    if (isStream(path)) return writeStream(path, content);
    std::string target = behindLinks(path);
    std::string temporary = target + ".XXXXXX";
    Descriptor file(::mkstemp(temporary.data()));
    if (file.get() < 0) fileFailure("write", path);
    try {
        writeAll(file.get(), content, path);
        mode_t mask = ::umask(0);
        ::umask(mask);
        if (::fchmod(file.get(), 0666 & ~mask) != 0 || ::fsync(file.get()) != 0 ||
            ::rename(temporary.c_str(), target.c_str()) != 0) {
            fileFailure("write", path);
        }
    } catch (...) {
        ::unlink(temporary.c_str());
        throw;
    }
}

void planOutputs(std::initializer_list<std::string> paths) {
    std::set<std::string> seen;
    for (const std::string& path : paths) {
        if (path == "-") printResultsAside();
        if (path.empty() || path == "-" || isStream(path)) continue;
        if (!seen.insert(path).second) throw UsageError("two outputs are to go into " + path);
        std::string target = behindLinks(path);
        struct stat present {};
        if (::stat(target.c_str(), &present) == 0 && S_ISDIR(present.st_mode)) {
            errno = EISDIR;
            fileFailure("write", path);
        }
        std::size_t slash = target.rfind('/');
        std::string folder = slash == std::string::npos ? "." : target.substr(0, slash + 1);
        if (::access(folder.c_str(), W_OK | X_OK) != 0) fileFailure("write", path);
    }
}

std::vector<Armoured> readObjects(const std::string& content, const std::string& name) {
    if (content.empty()) throw Failure(name + ": the file is empty");
    if (content[0] != 0x30 || isText(content)) {
        std::vector<Armoured> objects = readArmour(content, name);
        if (!objects.empty()) return objects;
        if (isBase64(content)) return {{"", decodeBase64(content, name)}};
    }
    return {{"", content}};
}

CACMPT_BLOB readObject(const std::string& path) {
    std::vector<Armoured> objects = readObjects(readFile(path), path);
    if (objects.size() != 1) {
        throw Failure(path + ": holds " + std::to_string(objects.size()) +
                      " objects; give a file with one");
    }
    return CACMPT_BLOB(objects[0].der.data(), objects[0].der.size());
}

std::string armour(std::string_view der, const std::string& label) {
    unsigned int length = 0;
    auto bytes = reinterpret_cast<const unsigned char*>(der.data());
    auto size = static_cast<unsigned int>(der.size());
    base64_encode(bytes, size, nullptr, &length);
    std::string text(length, 0);
    base64_encode(bytes, size, text.data(), &length);
    return "-----BEGIN " + label + "-----\n" + text + "-----END " + label + "-----\n";
}

void writeObject(const std::string& path, const CACMPT_BLOB& der, const std::string& label) {
    bool armoured = endsIn(path, ".pem") || endsIn(path, ".crt");
    writeFile(path, armoured ? armour(der.view(), label) : std::string(der.view()));
}

}  // namespace tool
