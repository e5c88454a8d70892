#pragma once

#include <memory>
#include <string>

#include "capilite/Blob.h"
#include "platform/Export.h"

/// A name as received, with the normal form by which names are compared: runs of blanks and case do
/// not count in values that are PrintableString. Belongs to one thread at a time, since the normal
/// form is made when it is first needed.
class PKIXCMP_API CACMPT_CERT_NAME : public CACMPT_BLOB {
public:
    CACMPT_CERT_NAME() = default;
    CACMPT_CERT_NAME(const void* bytes, std::size_t n) : CACMPT_BLOB(bytes, n) {}
    explicit CACMPT_CERT_NAME(const CACMPT_BLOB& der) : CACMPT_BLOB(der) {}
    CACMPT_CERT_NAME(const CACMPT_CERT_NAME& other) : CACMPT_BLOB() { assign(other); }
    CACMPT_CERT_NAME& operator=(const CACMPT_CERT_NAME& other) {
        assign(other);
        return *this;
    }

    void assign(const void* bytes, std::size_t n);
    void assign(const CACMPT_BLOB& der);
    /// Copies the normal form too if it was made.
    void assign(const CACMPT_CERT_NAME& other);
    /// Makes the normal form unless it is there. `Asn1Exception` for bytes that are no name.
    const CACMPT_BLOB& fill_norm() const;
    /// The normal form as text.
    std::wstring toString() const;

    mutable std::unique_ptr<CACMPT_BLOB> norm;  // null until first needed

    /// Compares the normal forms.
    friend bool operator==(const CACMPT_CERT_NAME& a, const CACMPT_CERT_NAME& b) {
        return a.fill_norm() == b.fill_norm();
    }
};
