#pragma once

#include <list>

#include "capilite/Blob.h"
#include "capilite/ParsedRdn.h"
#include "pkixcmp/FreeText.h"
#include "pkixcmp/Records.h"
#include "platform/Export.h"
#include "platform/asn1/asn1data.h"

// Records to and from the header of a PKIMessage (RFC 4210 5.1). pvno is always written as 0 and
// never looked at. recipKID and recipNonce are neither written nor read. Identifiers and nonces are
// copied byte for byte and compared nowhere.

/// Fills the header but the fields of protection; body, protection and extraCerts stay as they are.
/// Texts go to the context of the encode buffer, items of generalInfo to that of the decode buffer,
/// and the record's blobs are referred to: record and buffers must outlive the encoding. A sender
/// or recipient that is empty in the record is left as it is in the message.
PKIXCMP_API void ASN1CMPMessage_Encode(const PKIXCMP_Message& message,
                                       asn1data::ASN1T_PKIMessage& out,
                                       ASN1BEREncodeBuffer& encodeBuffer,
                                       ASN1BERDecodeBuffer& decodeBuffer);
/// Fills the record from the header. Sender and recipient must be directory names and come as text
/// without "dn:" in front; a name that does not fit the record is cut. `FreeText` is appended to. A
/// message without messageTime leaves the zero date. More than `PKIXCMP_LIST_ITEMS` items of
/// generalInfo are an `Asn1DecodeException`.
PKIXCMP_API void ASN1CMPMessage_Parse(asn1data::ASN1T_PKIMessage& in, PKIXCMP_Message& message);

/// A GeneralName from "rfc:…", "dns:…" or "dn:…". 0, or 1 for text of no such form; a distinguished
/// name that cannot be read throws.
PKIXCMP_API int str2general(const wchar_t* text, asn1data::ASN1T_GeneralName& out,
                            ASN1BEREncodeBuffer& buffer);
/// A Name from its text, in the context of the buffer. Gives 0, throws on failure.
PKIXCMP_API int str2dn(const wchar_t* text, asn1data::ASN1T_Name& out, ASN1BEREncodeBuffer& buffer);
/// The DER of a GeneralName that is a directory name; any other is an `Asn1DecodeException`.
PKIXCMP_API void GeneralizedNameParse(const asn1data::ASN1T_GeneralName& name,
                                      CACMPT_PARSED_RDN& out);

/// The text of a name, without "dn:" in front, cut to the room of a record.
PKIXCMP_API void copyNameText(const CACMPT_PARSED_RDN& name, wchar_t (&out)[PKIXCMP_NAME_CHARS]);

/// The longest element of a received free text, in characters with a terminating zero.
inline constexpr std::size_t FREE_TEXT_CHARS = 4096;
/// The elements with their language tags as UTF-8, in the context.
PKIXCMP_API void FreeText_Encode(ASN1CTXT* context, asn1data::ASN1T_PKIFreeText& out,
                                 const FreeText& text);
/// Appends the elements to the record. Text behind a zero character is not part of an element.
PKIXCMP_API void FreeText_Parse(ASN1CTXT* context, FreeText& out,
                                const asn1data::ASN1T_PKIFreeText& in);

/// Appends certificates to extraCerts, decoded into the context of the buffer. An empty list does
/// nothing.
PKIXCMP_API void add_extra_certs(ASN1BERDecodeBuffer& buffer, asn1data::ASN1T_PKIMessage& message,
                                 const std::list<CACMPT_BLOB>& certificates);

/// failInfo of a set of failures: 15 bits, each at the position of its mask in
/// `FailureInfo::sequence`. False for an empty set.
PKIXCMP_API bool FailureInfo_Encode(ASN1CTXT* context, ASN1TDynBitStr& out, std::uint32_t failures);
/// The masks of the bits that are set; positions behind the table are passed over.
PKIXCMP_API std::uint32_t FailureInfo_Parse(const ASN1TDynBitStr& in);
/// The same for the 7 bits of revocation reasons and `ReasonFlags::sequence`.
PKIXCMP_API bool ReasonFlags_Encode(ASN1CTXT* context, ASN1TDynBitStr& out, std::uint32_t reasons);
PKIXCMP_API std::uint32_t ReasonFlags_Parse(const ASN1TDynBitStr& in);
