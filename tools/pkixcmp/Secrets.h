#pragma once

#include <string>

#include "pkixcmp/WndProv.h"

namespace tool {

/// A PIN of 1 to 8 characters. Cleansed when it goes; copied only into the buffers of the library.
class Secret {
public:
    Secret() = default;
    /// Takes the text over and cleanses the argument. UsageError for a length that no PIN has.
    explicit Secret(std::string& text);
    Secret(Secret&& other) noexcept;
    Secret& operator=(Secret&& other) noexcept;
    ~Secret();

    bool empty() const { return text_[0] == 0; }
    /// Writes the text and its zero into the 9 bytes of a `PinBuffer`.
    void copyTo(char* pin) const;
    bool operator==(const Secret& other) const;

private:
    char text_[9] = {};
};

/// Takes the secrets out of the command line, so that neither the list of processes nor the
/// parser's copies hold them: each pass:TEXT of a PIN option becomes a mark that `readSecret`
/// knows.
void takeSecrets(int argc, char** argv);

/// Reads a secret from where `source` says: pass:TEXT, env:NAME, file:PATH (its first line) or
/// fd:NUMBER. The argument is cleansed when it carries the secret itself.
Secret readSecret(std::string& source);
/// Asks on the terminal without echo; with `twice` a new secret, which must be typed alike twice. A
/// Failure when there is no terminal.
Secret askSecret(const std::string& prompt, bool twice);

/// Answers the library from what was collected at the start: reader, PIN and new PIN. A PIN is
/// tried once: a wrong one is a `CryptException` of the code 0x8010006B.
class CallerWndProv : public WndProv {
public:
    ~CallerWndProv() override = default;

    bool insert_create(const char* name, unsigned long error, short parts, int part) override;
    bool retry(const char* name, int tries, Retry& operation) override;
    bool get_current_pin(const char* name, short tries, char* pin, short parts, int part) override;
    bool get_new_pin(const char* name, char* pin, short parts, int part) override;
    std::string get_reader(const ReaderList& readers) override;
    int get_key_size() override { return keyBits; }
    bool no_pin() override { return newPin.empty(); }
    bool force_new_pin() override { return !newPin.empty(); }

    std::string reader;  // where new containers go
    Secret pin;          // of containers that are there
    Secret newPin;       // of containers to be made or changed
    int keyBits = 0;
};

}  // namespace tool
