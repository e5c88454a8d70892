#pragma once

#include <string>

#include "capilite/PinCallback.h"
#include "pkixcmp/Retry.h"
#include "platform/Export.h"

/// Room for a PIN of at most 8 characters and its zero, cleansed when it goes.
struct PKIXCMP_API PinBuffer {
    char text[9] = {};
    PinBuffer() = default;
    PinBuffer(const PinBuffer&) = delete;
    PinBuffer& operator=(const PinBuffer&) = delete;
    ~PinBuffer();
    /// The PIN; one that fills the buffer without a zero is cut.
    const char* c_str();
};

/// Every question to a person goes through this interface; the library has no dialogues of its own.
///
/// All operations run on the thread of the caller. One that runs between a failure and its report
/// leaves the last error as it found it. `pin` always points at the 9 bytes of a `PinBuffer`.
/// `parts` and `part` are 0, or the number of parts of a split key and the number of one from 1.
class PKIXCMP_API WndProv {
public:
    virtual ~WndProv();

    /// Asks for a medium on which to create the container `name`. `error` is the failure of the try
    /// before, 0 at first. False cancels.
    virtual bool insert_create(const char* name, unsigned long error, short parts, int part) = 0;
    /// Runs the operation; true when the caller can act on its `error`.
    virtual bool retry(const char* name, int tries, Retry& operation) = 0;
    /// Asks for the PIN of a container; `tries` are left. False cancels.
    virtual bool get_current_pin(const char* name, short tries, char* pin, short parts,
                                 int part) = 0;
    /// Asks for a new PIN. False cancels.
    virtual bool get_new_pin(const char* name, char* pin, short parts, int part) = 0;
    /// Chooses a reader, by the second string of its pair. An empty answer cancels.
    virtual std::string get_reader(const ReaderList& readers) = 0;
    /// Size in bits of a new key for providers that take one; 0 for their own default.
    virtual int get_key_size() { return 0; }
    /// True when the provider's own dialogues are to be used and this interface is not to be asked.
    virtual bool use_builtin_windows() { return false; }
    /// True when a new container keeps the PIN it has.
    virtual bool no_pin() { return false; }
    /// True when a new container gets a new PIN at once, with no current one asked for.
    virtual bool force_new_pin() { return false; }
};

/// Leaves every question to the provider.
class PKIXCMP_API WIN32WndProv : public WndProv {
public:
    ~WIN32WndProv() override;
    bool insert_create(const char* name, unsigned long error, short parts, int part) override;
    bool retry(const char* name, int tries, Retry& operation) override;
    bool get_current_pin(const char* name, short tries, char* pin, short parts, int part) override;
    bool get_new_pin(const char* name, char* pin, short parts, int part) override;
    std::string get_reader(const ReaderList& readers) override;
    int get_key_size() override { return 0; }
    bool use_builtin_windows() override { return true; }
};

/// Answers from a fixed reader and PIN, for use with no person present. A PIN is tried once: a
/// second question is a `CryptException` with the last error, as is a medium that cannot be used. A
/// PIN of more than 8 characters is refused in the same way when it is asked for.
class PKIXCMP_API OldWndProv : public WndProv {
public:
    /// A null PIN is empty.
    OldWndProv(const std::string& reader, const char* pin);
    /// Takes the reader out of a container's name, "\\.\READER\NAME".
    OldWndProv(const char* container, const char* pin);
    OldWndProv(const OldWndProv&) = delete;
    OldWndProv& operator=(const OldWndProv&) = delete;
    ~OldWndProv() override;
    bool insert_create(const char* name, unsigned long error, short parts, int part) override;
    bool retry(const char* name, int tries, Retry& operation) override;
    bool get_current_pin(const char* name, short tries, char* pin, short parts, int part) override;
    bool get_new_pin(const char* name, char* pin, short parts, int part) override;
    std::string get_reader(const ReaderList& readers) override;
    int get_key_size() override { return 0; }

private:
    void setPin(const char* pin);
    void givePin(char* pin) const;

    std::string reader_;
    char pin_[15] = {};
};

/// The PIN callback that asks a `WndProv`, which outlives it.
class PKIXCMP_API CryptSetPinCallbackWndProv : public CryptSetPinCallback {
public:
    explicit CryptSetPinCallbackWndProv(WndProv* wnd) : wnd_(wnd) {}
    ~CryptSetPinCallbackWndProv() override;
    std::string get_pin() override;

private:
    WndProv* wnd_;
};
