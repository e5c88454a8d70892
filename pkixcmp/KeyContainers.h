#pragma once

#include <string>

#include "capilite/Blob.h"
#include "capilite/DefaultProvider.h"
#include "pkixcmp/Retry.h"
#include "pkixcmp/WndProv.h"
#include "platform/Export.h"

// Key containers: names, properties, PINs and creation. Provider types 75, 80 and 81 have readers
// and PINs. Failures are `CryptException` with the last error; a person who cancels is the code
// 0x8010006E.

/// Whether containers of the provider type take a PIN.
PKIXCMP_API bool is_pin_provider(unsigned int providerType);

/// Splits "\\.\READER\NAME". A name without the prefix has no reader; a null one is empty.
PKIXCMP_API void split_container_name(const char* name, std::string& reader,
                                      std::string& container);
/// "\\.\READER\NAME", the inverse of `split_container_name`.
PKIXCMP_API std::string full_container_name(const std::string& reader,
                                            const std::string& container);
/// Appends the readers of a provider.
PKIXCMP_API void get_reader_list(unsigned long long provider, ReaderList& readers);
/// Has one of a provider's readers chosen. Empty, with the last error, when the person cancels.
PKIXCMP_API std::string choose_reader(WndProv& wnd, unsigned long long provider);

PKIXCMP_API std::string get_container(unsigned long long provider);
PKIXCMP_API std::string get_unique(unsigned long long provider);
PKIXCMP_API std::string get_provider(unsigned long long provider);
/// How a container is protected; see `PinInfoHead`.
PKIXCMP_API CACMPT_BLOB GetPinInfo(unsigned long long provider);

/// Unlocks a container with at most three PINs asked for, told 3, 2 and 1 tries. The identifier of
/// the opened container, 0 when the person cancels.
PKIXCMP_API unsigned int get_pin_load(WndProv& wnd, unsigned long long provider, const char* name,
                                      short parts, int part);
/// Asks for a new PIN and sets it; false when the person cancels.
PKIXCMP_API bool change_pin(WndProv& wnd, unsigned long long provider, const char* name,
                            short parts, int part);
/// Gives a new container its PIN by `force_new_pin` and `no_pin` of the dialogue. `*pinState` is
/// the identifier of the opened container; false when the person cancels.
PKIXCMP_API bool set_created_pin(WndProv& wnd, unsigned long long provider, const char* name,
                                 short parts, int part, unsigned int* pinState);
/// Creates a container, asking for a medium until one takes it, and gives it its PIN. With `parts`
/// the name ends in "." and the number of the part. The handle passes to the caller; on failure
/// and on false (the person cancelled) there is none.
PKIXCMP_API bool create_with_change(WndProv& wnd, const char* providerName,
                                    unsigned int providerType, const char* reader,
                                    const char* container, short part, short parts,
                                    unsigned long long* provider, unsigned int* pinState);

/// Writes a random container name of 35 characters and a zero.
PKIXCMP_API void CACMP_GenContainerName(unsigned long long provider, char* out);
