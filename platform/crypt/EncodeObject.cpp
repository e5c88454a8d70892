#include <algorithm>
#include <cstring>
#include <vector>

#include "platform/asn1/Numbers.h"
#include "platform/asn1/Tlv.h"
#include "platform/asn1/asn1data.h"
#include "platform/crypt/Failure.h"

using provider::fail;
using provider::guarded;
using provider::require;

// Small structures of the interface between their records and DER.

namespace {

using Bytes = std::vector<BYTE>;

/// DER of a value of at most 2 GiB; the content comes low byte first where `reversed` is set.
Bytes derOf(BYTE tag, const BYTE* content, std::size_t size, bool reversed) {
    Bytes der(1 + asn1::lengthOctets(size) + size);
    der[0] = tag;
    asn1::putLength(der.data() + 1, size);
    BYTE* target = der.data() + der.size() - size;
    if (reversed) {
        std::reverse_copy(content, content + size, target);
    } else if (size != 0) {
        std::memcpy(target, content, size);
    }
    return der;
}

/// How many octets of a little-endian signed number count: those that only repeat the sign do not.
std::size_t significant(const BYTE* octets, std::size_t size) {
    auto repeats = [&](std::size_t top) {
        bool negative = (octets[top - 1] & 0x80) != 0;
        return octets[top] == (negative ? 0xFF : 0x00);
    };
    while (size > 1 && repeats(size - 1)) --size;
    return size;
}

Bytes encodeInteger(BYTE tag, const CRYPT_DATA_BLOB& number) {
    require(number.cbData != 0 && number.pbData != nullptr, CRYPT_E_BAD_ENCODE);
    return derOf(tag, number.pbData, significant(number.pbData, number.cbData), true);
}

Bytes encodeSmall(BYTE tag, const void* data) {
    BYTE octets[4];
    DWORD number = *static_cast<const DWORD*>(data);
    for (int i = 0; i < 4; ++i) octets[i] = static_cast<BYTE>(number >> (8 * i));
    return derOf(tag, octets, significant(octets, 4), true);
}

/// The issuer's name as GeneralNames with one directoryName.
Bytes issuerNames(const CRYPT_DATA_BLOB& name) {
    asn1::Header header;
    const BYTE* end = name.pbData + name.cbData;
    require(asn1::readHeader(name.pbData, end, header) == ASN_OK && header.next == end &&
                header.id == asn1::tagSequence,
            CRYPT_E_BAD_ENCODE);
    Bytes directoryName = derOf(0xA4, name.pbData, name.cbData, false);
    return derOf(0xA1, directoryName.data(), directoryName.size(), false);
}

Bytes encodeAuthorityKeyId(const CERT_AUTHORITY_KEY_ID_INFO& info) {
    Bytes content;
    auto append = [&](const Bytes& part) {
        content.insert(content.end(), part.begin(), part.end());
    };
    if (info.KeyId.cbData != 0) {
        append(derOf(0x80, info.KeyId.pbData, info.KeyId.cbData, false));
    }
    if (info.CertIssuer.cbData != 0) append(issuerNames(info.CertIssuer));
    if (info.CertSerialNumber.cbData != 0) append(encodeInteger(0x82, info.CertSerialNumber));
    return derOf(asn1::tagSequence, content.data(), content.size(), false);
}

/// Content of the one value of this tag that fills the input.
std::pair<const BYTE*, std::size_t> contentOf(BYTE tag, const BYTE* encoded, DWORD length) {
    asn1::Header header;
    const BYTE* end = encoded + length;
    require(encoded != nullptr && asn1::readHeader(encoded, end, header) == ASN_OK &&
                header.next == end && header.id == tag && !header.indefinite,
            CRYPT_E_ASN1_BADTAG);
    return {header.content, static_cast<std::size_t>(header.end - header.content)};
}

DWORD decodeSmall(BYTE tag, const BYTE* encoded, DWORD length) {
    auto [content, size] = contentOf(tag, encoded, length);
    require(size >= 1 && size <= 4, CRYPT_E_ASN1_BADTAG);
    DWORD number = (content[0] & 0x80) != 0 ? 0xFFFFFFFF : 0;
    for (std::size_t i = 0; i < size; ++i) number = number << 8 | content[i];
    return number;
}

/// Fills a record in the caller's buffer and what it points at behind it.
class Output {
public:
    Output(std::size_t recordSize) : size_(recordSize) {}
    /// Notes bytes that the record is to point at from `slot`, an offset in it.
    void add(std::size_t slot, Bytes bytes) {
        size_ += bytes.size();
        parts_.push_back({slot, std::move(bytes)});
    }
    void give(std::size_t recordSize, void* data, DWORD* length) const {
        require(length != nullptr, ERROR_INVALID_PARAMETER);
        DWORD room = *length;
        *length = static_cast<DWORD>(size_);
        if (data == nullptr) return;
        require(room >= size_, ERROR_MORE_DATA);
        auto* base = static_cast<BYTE*>(data);
        std::memset(base, 0, recordSize);
        BYTE* next = base + recordSize;
        for (const auto& [slot, bytes] : parts_) {
            CRYPT_DATA_BLOB blob{static_cast<DWORD>(bytes.size()), next};
            std::memcpy(base + slot, &blob, sizeof blob);
            next = std::copy(bytes.begin(), bytes.end(), next);
        }
    }

private:
    std::size_t size_;
    std::vector<std::pair<std::size_t, Bytes>> parts_;
};

void decodeInteger(const BYTE* encoded, DWORD length, void* data, DWORD* dataLength) {
    auto [content, size] = contentOf(asn1::tagInteger, encoded, length);
    require(size != 0, CRYPT_E_ASN1_BADTAG);
    Output out(sizeof(CRYPT_DATA_BLOB));
    Bytes number(content, content + size);
    std::reverse(number.begin(), number.end());
    out.add(0, std::move(number));
    out.give(sizeof(CRYPT_DATA_BLOB), data, dataLength);
}

/// DER of the directory name among the issuer's names; empty when there is none.
Bytes directoryNameOf(ASN1CTXT* arena, const asn1data::ASN1T_GeneralNames& names) {
    for (const asn1data::ASN1T_GeneralName& name : names) {
        if (name.t != asn1data::ASN1T_GeneralName::T_directoryName) continue;
        const std::uint8_t* der = nullptr;
        int size =
            rtEncodeDer(arena, Schema<asn1data::ASN1T_Name>::type, name.u.directoryName, &der);
        require(size >= 0, CRYPT_E_ASN1_BADTAG);
        return {der, der + size};
    }
    return {};
}

void decodeAuthorityKeyId(const BYTE* encoded, DWORD length, void* data, DWORD* dataLength) {
    using Info = CERT_AUTHORITY_KEY_ID_INFO;
    asn1data::ASN1T_AuthorityKeyIdentifier id;
    ASN1BERDecodeBuffer buffer(encoded, length);
    require(encoded != nullptr &&
                buffer.decode(Schema<asn1data::ASN1T_AuthorityKeyIdentifier>::type, &id) == ASN_OK,
            CRYPT_E_ASN1_BADTAG);
    Output out(sizeof(Info));
    if (id.m.keyIdentifierPresent) {
        const std::uint8_t* octets = id.keyIdentifier.data;
        out.add(offsetof(Info, KeyId), Bytes(octets, octets + id.keyIdentifier.numocts));
    }
    if (id.m.authorityCertIssuerPresent) {
        out.add(offsetof(Info, CertIssuer),
                directoryNameOf(buffer.getCtxtPtr(), id.authorityCertIssuer));
    }
    if (id.m.authorityCertSerialNumberPresent) {
        long size = asn1::bigIntLength(id.authorityCertSerialNumber);
        require(size >= 0, CRYPT_E_ASN1_BADTAG);
        Bytes number(static_cast<std::size_t>(size));
        asn1::bigIntContent(id.authorityCertSerialNumber, number.data());
        std::reverse(number.begin(), number.end());
        out.add(offsetof(Info, CertSerialNumber), std::move(number));
    }
    out.give(sizeof(Info), data, dataLength);
}

std::size_t typeOf(const char* structType) { return reinterpret_cast<std::size_t>(structType); }

}  // namespace

BOOL CryptEncodeObject(DWORD, const char* structType, const void* data, BYTE* encoded,
                       DWORD* length) {
    return guarded([&] {
        require(data != nullptr, ERROR_INVALID_PARAMETER);
        Bytes der;
        switch (typeOf(structType)) {
            case X509_MULTI_BYTE_INTEGER:
                der = encodeInteger(asn1::tagInteger, *static_cast<const CRYPT_DATA_BLOB*>(data));
                break;
            case X509_INTEGER:
                der = encodeSmall(asn1::tagInteger, data);
                break;
            case X509_ENUMERATED:
                der = encodeSmall(asn1::tagEnumerated, data);
                break;
            case X509_AUTHORITY_KEY_ID:
                der = encodeAuthorityKeyId(*static_cast<const CERT_AUTHORITY_KEY_ID_INFO*>(data));
                break;
            default:
                fail(ERROR_FILE_NOT_FOUND);
        }
        provider::giveBytes(der.data(), der.size(), encoded, length);
    });
}

BOOL CryptDecodeObject(DWORD, const char* structType, const BYTE* encoded, DWORD encodedLength,
                       DWORD, void* data, DWORD* length) {
    return guarded([&] {
        auto giveSmall = [&](BYTE tag) {
            DWORD number = decodeSmall(tag, encoded, encodedLength);
            provider::giveBytes(&number, sizeof number, static_cast<BYTE*>(data), length);
        };
        switch (typeOf(structType)) {
            case X509_MULTI_BYTE_INTEGER:
                return decodeInteger(encoded, encodedLength, data, length);
            case X509_INTEGER:
                return giveSmall(asn1::tagInteger);
            case X509_ENUMERATED:
                return giveSmall(asn1::tagEnumerated);
            case X509_AUTHORITY_KEY_ID:
                return decodeAuthorityKeyId(encoded, encodedLength, data, length);
            default:
                fail(ERROR_FILE_NOT_FOUND);
        }
    });
}
