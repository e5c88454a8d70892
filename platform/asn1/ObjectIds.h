#pragma once

#include <array>
#include <cstdint>

#include "platform/asn1/BasicTypes.h"

// The identifiers that the library knows by name, as the octets of their encoding.

namespace asn1 {

/// The content octets of a dotted identifier, worked out at compile time.
template <std::size_t N>
struct OidLiteral {
    std::array<std::uint8_t, N> octets{};
    std::uint32_t length = 0;

    consteval OidLiteral(const char (&text)[N]) {
        std::uint64_t first = 0;
        int index = 0;
        for (std::size_t i = 0; i + 1 < N;) {
            std::uint64_t arc = 0;
            for (; i + 1 < N && text[i] != '.'; ++i) {
                arc = arc * 10 + static_cast<std::uint64_t>(text[i] - '0');
            }
            ++i;
            if (index == 0) {
                first = arc * 40;
            } else {
                put(index == 1 ? first + arc : arc);
            }
            ++index;
        }
        if (index < 2) throw "an identifier has two arcs at least";
    }

    consteval void put(std::uint64_t arc) {
        int groups = 1;
        for (std::uint64_t rest = arc >> 7; rest != 0; rest >>= 7) ++groups;
        while (groups-- > 0) {
            octets[length++] =
                static_cast<std::uint8_t>((arc >> (7 * groups) & 0x7F) | (groups ? 0x80 : 0));
        }
    }
};

template <OidLiteral Text>
inline constexpr auto oidOctets = Text;

/// `asn1::oid<"2.5.29.15">`.
template <OidLiteral Text>
inline constexpr ASN1TObjId oid{oidOctets<Text>.length, oidOctets<Text>.octets.data()};

}  // namespace asn1

namespace asn1data {

inline constexpr ASN1TObjId id_at_commonName = asn1::oid<"2.5.4.3">;
inline constexpr ASN1TObjId id_at_surname = asn1::oid<"2.5.4.4">;
inline constexpr ASN1TObjId id_at_serialNumber = asn1::oid<"2.5.4.5">;
inline constexpr ASN1TObjId id_at_countryName = asn1::oid<"2.5.4.6">;
inline constexpr ASN1TObjId id_at_localityName = asn1::oid<"2.5.4.7">;
inline constexpr ASN1TObjId id_at_stateOrProvinceName = asn1::oid<"2.5.4.8">;
inline constexpr ASN1TObjId id_at_streetAddress = asn1::oid<"2.5.4.9">;
inline constexpr ASN1TObjId id_at_organizationName = asn1::oid<"2.5.4.10">;
inline constexpr ASN1TObjId id_at_organizationalUnitName = asn1::oid<"2.5.4.11">;
inline constexpr ASN1TObjId id_at_title = asn1::oid<"2.5.4.12">;
inline constexpr ASN1TObjId id_at_postalAddress = asn1::oid<"2.5.4.16">;
inline constexpr ASN1TObjId id_at_postalCode = asn1::oid<"2.5.4.17">;
inline constexpr ASN1TObjId id_at_x121Address = asn1::oid<"2.5.4.24">;
inline constexpr ASN1TObjId id_at_name = asn1::oid<"2.5.4.41">;
inline constexpr ASN1TObjId id_at_givenName = asn1::oid<"2.5.4.42">;
inline constexpr ASN1TObjId id_at_initials = asn1::oid<"2.5.4.43">;
inline constexpr ASN1TObjId id_at_generationQualifier = asn1::oid<"2.5.4.44">;
inline constexpr ASN1TObjId id_at_dnQualifier = asn1::oid<"2.5.4.46">;
inline constexpr ASN1TObjId id_at_pseudonym = asn1::oid<"2.5.4.65">;
inline constexpr ASN1TObjId id_domainComponent = asn1::oid<"0.9.2342.19200300.100.1.25">;
inline constexpr ASN1TObjId id_emailAddress = asn1::oid<"1.2.840.113549.1.9.1">;
inline constexpr ASN1TObjId id_unstructuredName = asn1::oid<"1.2.840.113549.1.9.2">;
inline constexpr ASN1TObjId id_ogrn = asn1::oid<"1.2.643.100.1">;
inline constexpr ASN1TObjId id_snils = asn1::oid<"1.2.643.100.3">;
inline constexpr ASN1TObjId id_ogrnip = asn1::oid<"1.2.643.100.5">;
inline constexpr ASN1TObjId id_inn = asn1::oid<"1.2.643.3.131.1.1">;
inline constexpr ASN1TObjId pkcs_9_at_challengePassword = asn1::oid<"1.2.840.113549.1.9.7">;
inline constexpr ASN1TObjId pkcs_9_at_extensionRequest = asn1::oid<"1.2.840.113549.1.9.14">;
inline constexpr ASN1TObjId id_ms_certExtensions = asn1::oid<"1.3.6.1.4.1.311.2.1.14">;
inline constexpr ASN1TObjId id_ce_subjectDirectoryAttributes = asn1::oid<"2.5.29.9">;
inline constexpr ASN1TObjId id_ce_subjectKeyIdentifier = asn1::oid<"2.5.29.14">;
inline constexpr ASN1TObjId id_ce_keyUsage = asn1::oid<"2.5.29.15">;
inline constexpr ASN1TObjId id_ce_privateKeyUsagePeriod = asn1::oid<"2.5.29.16">;
inline constexpr ASN1TObjId id_ce_subjectAltName = asn1::oid<"2.5.29.17">;
inline constexpr ASN1TObjId id_ce_issuerAltName = asn1::oid<"2.5.29.18">;
inline constexpr ASN1TObjId id_ce_basicConstraints = asn1::oid<"2.5.29.19">;
inline constexpr ASN1TObjId id_ce_cRLNumber = asn1::oid<"2.5.29.20">;
inline constexpr ASN1TObjId id_ce_reasonCode = asn1::oid<"2.5.29.21">;
inline constexpr ASN1TObjId id_ce_instructionCode = asn1::oid<"2.5.29.23">;
inline constexpr ASN1TObjId id_ce_invalidityDate = asn1::oid<"2.5.29.24">;
inline constexpr ASN1TObjId id_ce_deltaCRLIndicator = asn1::oid<"2.5.29.27">;
inline constexpr ASN1TObjId id_ce_issuingDistributionPoint = asn1::oid<"2.5.29.28">;
inline constexpr ASN1TObjId id_ce_certificateIssuer = asn1::oid<"2.5.29.29">;
inline constexpr ASN1TObjId id_ce_nameConstraints = asn1::oid<"2.5.29.30">;
inline constexpr ASN1TObjId id_ce_cRLDistributionPoints = asn1::oid<"2.5.29.31">;
inline constexpr ASN1TObjId id_ce_certificatePolicies = asn1::oid<"2.5.29.32">;
inline constexpr ASN1TObjId anyPolicy = asn1::oid<"2.5.29.32.0">;
inline constexpr ASN1TObjId id_ce_policyMappings = asn1::oid<"2.5.29.33">;
inline constexpr ASN1TObjId id_ce_authorityKeyIdentifier = asn1::oid<"2.5.29.35">;
inline constexpr ASN1TObjId id_ce_policyConstraints = asn1::oid<"2.5.29.36">;
inline constexpr ASN1TObjId id_ce_extKeyUsage = asn1::oid<"2.5.29.37">;
inline constexpr ASN1TObjId anyExtendedKeyUsage = asn1::oid<"2.5.29.37.0">;
inline constexpr ASN1TObjId id_ce_freshestCRL = asn1::oid<"2.5.29.46">;
inline constexpr ASN1TObjId id_ce_inhibitAnyPolicy = asn1::oid<"2.5.29.54">;
inline constexpr ASN1TObjId id_pe_authorityInfoAccess = asn1::oid<"1.3.6.1.5.5.7.1.1">;
inline constexpr ASN1TObjId id_pe_subjectInfoAccess = asn1::oid<"1.3.6.1.5.5.7.1.11">;
inline constexpr ASN1TObjId id_qt_cps = asn1::oid<"1.3.6.1.5.5.7.2.1">;
inline constexpr ASN1TObjId id_qt_unotice = asn1::oid<"1.3.6.1.5.5.7.2.2">;
inline constexpr ASN1TObjId id_kp_serverAuth = asn1::oid<"1.3.6.1.5.5.7.3.1">;
inline constexpr ASN1TObjId id_kp_clientAuth = asn1::oid<"1.3.6.1.5.5.7.3.2">;
inline constexpr ASN1TObjId id_kp_codeSigning = asn1::oid<"1.3.6.1.5.5.7.3.3">;
inline constexpr ASN1TObjId id_kp_emailProtection = asn1::oid<"1.3.6.1.5.5.7.3.4">;
inline constexpr ASN1TObjId id_kp_timeStamping = asn1::oid<"1.3.6.1.5.5.7.3.8">;
inline constexpr ASN1TObjId id_kp_OCSPSigning = asn1::oid<"1.3.6.1.5.5.7.3.9">;
inline constexpr ASN1TObjId id_ad_ocsp = asn1::oid<"1.3.6.1.5.5.7.48.1">;
inline constexpr ASN1TObjId id_ad_caIssuers = asn1::oid<"1.3.6.1.5.5.7.48.2">;
inline constexpr ASN1TObjId id_ad_timeStamping = asn1::oid<"1.3.6.1.5.5.7.48.3">;
inline constexpr ASN1TObjId id_ad_caRepository = asn1::oid<"1.3.6.1.5.5.7.48.5">;
inline constexpr ASN1TObjId id_pkix_ocsp_nocheck = asn1::oid<"1.3.6.1.5.5.7.48.1.5">;
inline constexpr ASN1TObjId id_ms_applicationPolicies = asn1::oid<"1.3.6.1.4.1.311.21.10">;
inline constexpr ASN1TObjId id_ms_applicationPolicyConstraints = asn1::oid<"1.3.6.1.4.1.311.21.12">;
inline constexpr ASN1TObjId id_ms_caVersion = asn1::oid<"1.3.6.1.4.1.311.21.1">;
inline constexpr ASN1TObjId id_PasswordBasedMac = asn1::oid<"1.2.840.113533.7.66.13">;
inline constexpr ASN1TObjId id_DHBasedMac = asn1::oid<"1.2.840.113533.7.66.30">;
inline constexpr ASN1TObjId id_it_caProtEncCert = asn1::oid<"1.3.6.1.5.5.7.4.1">;
inline constexpr ASN1TObjId id_it_signKeyPairTypes = asn1::oid<"1.3.6.1.5.5.7.4.2">;
inline constexpr ASN1TObjId id_it_encKeyPairTypes = asn1::oid<"1.3.6.1.5.5.7.4.3">;
inline constexpr ASN1TObjId id_it_preferredSymmAlg = asn1::oid<"1.3.6.1.5.5.7.4.4">;
inline constexpr ASN1TObjId id_it_caKeyUpdateInfo = asn1::oid<"1.3.6.1.5.5.7.4.5">;
inline constexpr ASN1TObjId id_it_CurrentCRL = asn1::oid<"1.3.6.1.5.5.7.4.6">;
inline constexpr ASN1TObjId id_it_unsupportedOIDs = asn1::oid<"1.3.6.1.5.5.7.4.7">;
inline constexpr ASN1TObjId id_it_keyPairParamReq = asn1::oid<"1.3.6.1.5.5.7.4.10">;
inline constexpr ASN1TObjId id_it_keyPairParamRep = asn1::oid<"1.3.6.1.5.5.7.4.11">;
inline constexpr ASN1TObjId id_it_revPassphrase = asn1::oid<"1.3.6.1.5.5.7.4.12">;
inline constexpr ASN1TObjId id_it_implicitConfirm = asn1::oid<"1.3.6.1.5.5.7.4.13">;
inline constexpr ASN1TObjId id_it_confirmWaitTime = asn1::oid<"1.3.6.1.5.5.7.4.14">;
inline constexpr ASN1TObjId id_it_origPKIMessage = asn1::oid<"1.3.6.1.5.5.7.4.15">;
inline constexpr ASN1TObjId id_it_suppLangTags = asn1::oid<"1.3.6.1.5.5.7.4.16">;
inline constexpr ASN1TObjId id_regCtrl_regToken = asn1::oid<"1.3.6.1.5.5.7.5.1.1">;
inline constexpr ASN1TObjId id_regCtrl_authenticator = asn1::oid<"1.3.6.1.5.5.7.5.1.2">;
inline constexpr ASN1TObjId id_regCtrl_pkiPublicationInfo = asn1::oid<"1.3.6.1.5.5.7.5.1.3">;
inline constexpr ASN1TObjId id_regCtrl_pkiArchiveOptions = asn1::oid<"1.3.6.1.5.5.7.5.1.4">;
inline constexpr ASN1TObjId id_regCtrl_oldCertID = asn1::oid<"1.3.6.1.5.5.7.5.1.5">;
inline constexpr ASN1TObjId id_regCtrl_protocolEncrKey = asn1::oid<"1.3.6.1.5.5.7.5.1.6">;
inline constexpr ASN1TObjId id_regInfo_utf8Pairs = asn1::oid<"1.3.6.1.5.5.7.5.2.1">;
inline constexpr ASN1TObjId id_regInfo_certReq = asn1::oid<"1.3.6.1.5.5.7.5.2.2">;
inline constexpr ASN1TObjId id_Quorvex_it_PKIAudit = asn1::oid<"1.2.643.2.2.41.1">;
inline constexpr ASN1TObjId id_Quorvex_it_ChangeNameReq = asn1::oid<"1.2.643.2.2.41.2">;
inline constexpr ASN1TObjId id_Quorvex_it_ResumeCertificate = asn1::oid<"1.2.643.2.2.41.3">;
inline constexpr ASN1TObjId id_rsaEncryption = asn1::oid<"1.2.840.113549.1.1.1">;
inline constexpr ASN1TObjId id_ecPublicKey = asn1::oid<"1.2.840.10045.2.1">;

}  // namespace asn1data
