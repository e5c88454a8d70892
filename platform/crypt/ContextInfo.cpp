#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "platform/asn1/Numbers.h"
#include "platform/asn1/ObjectIds.h"
#include "platform/asn1/Time.h"
#include "platform/asn1/Tlv.h"
#include "platform/asn1/asn1data.h"
#include "platform/crypt/Context.h"

// What certificates and CRLs say, as the records of the interface.

namespace certstore {

namespace {

using provider::fail;
using provider::require;

BYTE* writable(const std::uint8_t* bytes) { return const_cast<BYTE*>(bytes); }

CRYPT_DATA_BLOB blobOf(View view) {
    return {static_cast<DWORD>(view.size()), writable(view.data())};
}

template <class T>
T* allocate(ASN1CTXT* arena, std::size_t count = 1) {
    void* memory = rtMemHeapAllocZ(arena, sizeof(T) * count);
    require(memory != nullptr, NTE_NO_MEMORY);
    return static_cast<T*>(memory);
}

char* textOf(ASN1CTXT* arena, const ASN1TObjId& oid) {
    const char* text = rtCopyCharStr(arena, rtOidToString(oid));
    require(text != nullptr, NTE_NO_MEMORY);
    return const_cast<char*>(text);
}

CRYPT_DATA_BLOB littleEndian(ASN1CTXT* arena, ASN1TBigInt number) {
    long length = asn1::bigIntLength(number);
    require(length >= 0, CRYPT_E_ASN1_BADTAG);
    auto* octets = allocate<BYTE>(arena, static_cast<std::size_t>(length));
    asn1::bigIntContent(number, octets);
    std::reverse(octets, octets + length);
    return {static_cast<DWORD>(length), octets};
}

/// Zero for a text that is no time.
FILETIME fileTime(ASN1MessageBufferIF& buffer, const asn1data::ASN1T_Time& time) {
    auto convert = [](const ASN1CTime& parsed) {
        SYSTEMTIME fields{};
        fields.wYear = static_cast<std::uint16_t>(parsed.getYear());
        fields.wMonth = static_cast<std::uint16_t>(parsed.getMonth());
        fields.wDay = static_cast<std::uint16_t>(parsed.getDay());
        fields.wHour = static_cast<std::uint16_t>(parsed.getHour());
        fields.wMinute = static_cast<std::uint16_t>(parsed.getMinute());
        fields.wSecond = static_cast<std::uint16_t>(parsed.getSecond());
        fields.wMilliseconds = static_cast<std::uint16_t>(parsed.getFraction());
        FILETIME file{};
        bool good = parsed.status() == 0 && SystemTimeToFileTime(&fields, &file) != 0;
        return good ? file : FILETIME{};
    };
    if (time.t == asn1data::ASN1T_Time::T_utcTime) {
        return convert(ASN1CUTCTime(buffer, time.u.text.view()));
    }
    return convert(ASN1CGeneralizedTime(buffer, time.u.text.view()));
}

CRYPT_ALGORITHM_IDENTIFIER algorithmOf(ASN1CTXT* arena,
                                       const asn1data::ASN1T_AlgorithmIdentifier& source) {
    CRYPT_ALGORITHM_IDENTIFIER algorithm{textOf(arena, source.algorithm), {}};
    if (source.m.parametersPresent) {
        algorithm.Parameters = {source.parameters.numocts, writable(source.parameters.data)};
    }
    return algorithm;
}

CERT_EXTENSION* extensionsOf(ASN1CTXT* arena, const asn1data::ASN1T_Extensions& source,
                             DWORD& count) {
    count = source.count;
    auto* extensions = allocate<CERT_EXTENSION>(arena, source.count);
    CERT_EXTENSION* next = extensions;
    for (const asn1data::ASN1T_Extension& extension : source) {
        *next++ = {textOf(arena, extension.extnID),
                   extension.m.criticalPresent && extension.critical,
                   {extension.extnValue.numocts, writable(extension.extnValue.data)}};
    }
    return extensions;
}

View keyIdentifierOf(const asn1data::ASN1T_Extensions& extensions) {
    for (const asn1data::ASN1T_Extension& extension : extensions) {
        if (!(extension.extnID == asn1data::id_ce_subjectKeyIdentifier)) continue;
        auto* id = extension.extnValue.as<asn1data::ASN1T_SubjectKeyIdentifier>();
        if (id != nullptr) return {id->data, id->numocts};
    }
    return {};
}

/// The parts of a SEQUENCE's first part: of the TBS record of a signed one. The bytes have been
/// decoded before.
std::vector<View> partsOfSigned(View encoded) {
    asn1::Header outer, inner;
    const std::uint8_t* end = encoded.data() + encoded.size();
    require(asn1::readHeader(encoded.data(), end, outer) == ASN_OK &&
                asn1::readHeader(outer.content, outer.end, inner) == ASN_OK,
            CRYPT_E_ASN1_BADTAG);
    std::vector<View> parts;
    parts.reserve(10);
    for (const std::uint8_t* p = inner.content; p < inner.end;) {
        asn1::Header part;
        require(asn1::readHeader(p, inner.end, part) == ASN_OK, CRYPT_E_ASN1_BADTAG);
        parts.emplace_back(p, part.next);
        p = part.next;
    }
    return parts;
}

template <class Record>
void decode(ASN1BERDecodeBuffer& buffer, View encoded, Record& record) {
    buffer.setBuffer(encoded.data(), encoded.size());
    int code = buffer.decode(Schema<Record>::type, &record);
    require(code == ASN_OK, code == ASN_E_NOMEM ? NTE_NO_MEMORY : CRYPT_E_ASN1_BADTAG);
}

}  // namespace

void CertificateKind::fill(ASN1CTXT* arena, View encoded, CERT_INFO& info, SearchKeys& keys) {
    ASN1BERDecodeBuffer buffer{ASN1CtxtRef(arena)};
    asn1data::ASN1T_Certificate certificate;
    decode(buffer, encoded, certificate);
    const asn1data::ASN1T_TBSCertificate& tbs = certificate.tbsCertificate;
    std::vector<View> parts = partsOfSigned(encoded);
    std::size_t first = tbs.m.versionPresent ? 1 : 0;
    keys.issuer = parts.at(first + 2);
    keys.subject = parts.at(first + 4);
    info.dwVersion = static_cast<DWORD>(tbs.version);
    info.SerialNumber = littleEndian(arena, tbs.serialNumber);
    info.SignatureAlgorithm = algorithmOf(arena, tbs.signature);
    info.Issuer = blobOf(keys.issuer);
    info.NotBefore = fileTime(buffer, tbs.validity.notBefore);
    info.NotAfter = fileTime(buffer, tbs.validity.notAfter);
    info.Subject = blobOf(keys.subject);
    const ASN1TDynBitStr& key = tbs.subjectPublicKeyInfo.subjectPublicKey;
    info.SubjectPublicKeyInfo.Algorithm = algorithmOf(arena, tbs.subjectPublicKeyInfo.algorithm);
    info.SubjectPublicKeyInfo.PublicKey = {key.numocts(), writable(key.data),
                                           key.numocts() * 8 - key.numbits};
    info.rgExtension = extensionsOf(arena, tbs.extensions, info.cExtension);
    keys.keyIdentifier = keyIdentifierOf(tbs.extensions);
    if (keys.keyIdentifier.empty()) {
        Hash hash = sha1({key.data, key.numocts()});
        const std::uint8_t* copy = rtCopyBytes(arena, hash.data(), hash.size());
        require(copy != nullptr, NTE_NO_MEMORY);
        keys.keyIdentifier = {copy, hash.size()};
    }
}

void CrlKind::fill(ASN1CTXT* arena, View encoded, CRL_INFO& info, SearchKeys& keys) {
    ASN1BERDecodeBuffer buffer{ASN1CtxtRef(arena)};
    asn1data::ASN1T_CertificateList list;
    decode(buffer, encoded, list);
    const asn1data::ASN1T_TBSCertList& tbs = list.tbsCertList;
    keys.issuer = partsOfSigned(encoded).at(tbs.m.versionPresent ? 2 : 1);
    info.dwVersion = tbs.m.versionPresent ? static_cast<DWORD>(tbs.version) : 0;
    info.SignatureAlgorithm = algorithmOf(arena, tbs.signature);
    info.Issuer = blobOf(keys.issuer);
    info.ThisUpdate = fileTime(buffer, tbs.thisUpdate);
    if (tbs.m.nextUpdatePresent) info.NextUpdate = fileTime(buffer, tbs.nextUpdate);
    info.rgExtension = extensionsOf(arena, tbs.crlExtensions, info.cExtension);
}

}  // namespace certstore
