#include "platform/asn1/ObjectSets.h"

#include "platform/asn1/ObjectIds.h"
#include "platform/asn1/PKIXCMP.h"

using namespace asn1data;

namespace asn1 {
namespace {

struct Entry {
    ASN1TObjId id;
    const Type* type = nullptr;
};

template <class T>
constexpr Entry entry(const ASN1TObjId& id) {
    return {id, &Schema<T>::type};
}

/// A set of identifiers as an open-addressed table that is laid out at compile time.
template <std::size_t N>
class ObjectTable {
public:
    consteval ObjectTable(const Entry (&entries)[N]) {
        for (const Entry& e : entries) {
            std::size_t at = slot(e.id);
            while (slots_[at].id.numocts != 0) at = (at + 1) % size;
            slots_[at] = e;
        }
    }
    const Type* find(const ASN1TObjId& id) const {
        if (id.numocts == 0) return nullptr;
        for (std::size_t at = slot(id); slots_[at].id.numocts != 0; at = (at + 1) % size) {
            if (slots_[at].id == id) return slots_[at].type;
        }
        return nullptr;
    }

private:
    static constexpr std::size_t size = std::size_t{4} << (N > 64   ? 6
                                                           : N > 32 ? 5
                                                           : N > 16 ? 4
                                                                    : 3);
    static_assert(size >= 2 * N);

    /// Identifiers of one set differ mostly in their last octet.
    static constexpr std::size_t slot(const ASN1TObjId& id) {
        return (id.data[id.numocts - 1] + 11U * id.numocts) % size;
    }
    Entry slots_[size] = {};
};

constexpr ObjectTable extensions({
    entry<ASN1T_SubjectDirectoryAttributes>(id_ce_subjectDirectoryAttributes),
    entry<ASN1T_SubjectKeyIdentifier>(id_ce_subjectKeyIdentifier),
    entry<ASN1T_KeyUsage>(id_ce_keyUsage),
    entry<ASN1T_PrivateKeyUsagePeriod>(id_ce_privateKeyUsagePeriod),
    entry<ASN1T_SubjectAltName>(id_ce_subjectAltName),
    entry<ASN1T_IssuerAltName>(id_ce_issuerAltName),
    entry<ASN1T_BasicConstraintsSyntax>(id_ce_basicConstraints),
    entry<ASN1T_CRLNumber>(id_ce_cRLNumber),
    entry<ASN1T_CRLReason>(id_ce_reasonCode),
    entry<ASN1T_HoldInstruction>(id_ce_instructionCode),
    entry<ASN1T_InvalidityDate>(id_ce_invalidityDate),
    entry<ASN1T_BaseCRLNumber>(id_ce_deltaCRLIndicator),
    entry<ASN1T_IssuingDistributionPoint>(id_ce_issuingDistributionPoint),
    entry<ASN1T_CertificateIssuer>(id_ce_certificateIssuer),
    entry<ASN1T_NameConstraintsSyntax>(id_ce_nameConstraints),
    entry<ASN1T_CRLDistPointsSyntax>(id_ce_cRLDistributionPoints),
    entry<ASN1T_CertificatePoliciesSyntax>(id_ce_certificatePolicies),
    entry<ASN1T_PolicyMappingsSyntax>(id_ce_policyMappings),
    entry<ASN1T_AuthorityKeyIdentifier>(id_ce_authorityKeyIdentifier),
    entry<ASN1T_PolicyConstraintsSyntax>(id_ce_policyConstraints),
    entry<ASN1T_ExtKeyUsageSyntax>(id_ce_extKeyUsage),
    entry<ASN1T_CRLDistPointsSyntax>(id_ce_freshestCRL),
    entry<ASN1T_InhibitAnyPolicy>(id_ce_inhibitAnyPolicy),
    entry<ASN1T_AuthorityInfoAccessSyntax>(id_pe_authorityInfoAccess),
    entry<ASN1T_SubjectInfoAccessSyntax>(id_pe_subjectInfoAccess),
    entry<ASN1T_NULLParams>(id_pkix_ocsp_nocheck),
    entry<ASN1T_CertificatePoliciesSyntax>(id_ms_applicationPolicies),
    entry<ASN1T_PolicyConstraintsSyntax>(id_ms_applicationPolicyConstraints),
    entry<ASN1T_CAVersion>(id_ms_caVersion),
});

constexpr ObjectTable attributesAndControls({
    entry<ASN1T_DirectoryString>(id_at_commonName),
    entry<ASN1T_DirectoryString>(id_at_surname),
    entry<ASN1T_DirectoryString>(id_at_serialNumber),
    entry<ASN1T_DirectoryString>(id_at_countryName),
    entry<ASN1T_DirectoryString>(id_at_localityName),
    entry<ASN1T_DirectoryString>(id_at_stateOrProvinceName),
    entry<ASN1T_DirectoryString>(id_at_streetAddress),
    entry<ASN1T_DirectoryString>(id_at_organizationName),
    entry<ASN1T_DirectoryString>(id_at_organizationalUnitName),
    entry<ASN1T_DirectoryString>(id_at_title),
    entry<ASN1T_PostalAddress>(id_at_postalAddress),
    entry<ASN1T_DirectoryString>(id_at_postalCode),
    entry<ASN1T_DirectoryString>(id_at_x121Address),
    entry<ASN1T_DirectoryString>(id_at_name),
    entry<ASN1T_DirectoryString>(id_at_givenName),
    entry<ASN1T_DirectoryString>(id_at_initials),
    entry<ASN1T_DirectoryString>(id_at_generationQualifier),
    entry<ASN1T_DirectoryString>(id_at_dnQualifier),
    entry<ASN1T_DirectoryString>(id_at_pseudonym),
    entry<ASN1T_DirectoryString>(id_domainComponent),
    entry<ASN1T_DirectoryString>(id_emailAddress),
    entry<ASN1T_DirectoryString>(id_unstructuredName),
    entry<ASN1T_DirectoryString>(id_ogrn),
    entry<ASN1T_DirectoryString>(id_snils),
    entry<ASN1T_DirectoryString>(id_ogrnip),
    entry<ASN1T_DirectoryString>(id_inn),
    entry<ASN1T_RegToken>(id_regCtrl_regToken),
    entry<ASN1T_Authenticator>(id_regCtrl_authenticator),
    entry<ASN1T_PKIPublicationInfo>(id_regCtrl_pkiPublicationInfo),
    entry<ASN1T_PKIArchiveOptions>(id_regCtrl_pkiArchiveOptions),
    entry<ASN1T_CertId>(id_regCtrl_oldCertID),
    entry<ASN1T_SubjectPublicKeyInfo>(id_regCtrl_protocolEncrKey),
    entry<ASN1T_UTF8Pairs>(id_regInfo_utf8Pairs),
    entry<ASN1T_CertRequest>(id_regInfo_certReq),
});

constexpr ObjectTable requestAttributes({
    entry<ASN1T_Extensions>(pkcs_9_at_extensionRequest),
    entry<ASN1T_Extensions>(id_ms_certExtensions),
    entry<ASN1T_DirectoryString>(pkcs_9_at_challengePassword),
});

constexpr ObjectTable policyQualifiers({
    entry<ASN1T_CPSuri>(id_qt_cps),
    entry<ASN1T_UserNotice>(id_qt_unotice),
});

constexpr ObjectTable infoTypes({
    entry<ASN1T_Certificate>(id_it_caProtEncCert),
    entry<ASN1T_SignKeyPairTypesValue>(id_it_signKeyPairTypes),
    entry<ASN1T_EncKeyPairTypesValue>(id_it_encKeyPairTypes),
    entry<ASN1T_AlgorithmIdentifier>(id_it_preferredSymmAlg),
    entry<ASN1T_CAKeyUpdAnnContent>(id_it_caKeyUpdateInfo),
    entry<ASN1T_CertificateList>(id_it_CurrentCRL),
    entry<ASN1T_UnsupportedOIDsValue>(id_it_unsupportedOIDs),
    entry<ASN1T_KeyPairParamReqValue>(id_it_keyPairParamReq),
    entry<ASN1T_AlgorithmIdentifier>(id_it_keyPairParamRep),
    entry<ASN1T_EncryptedValue>(id_it_revPassphrase),
    entry<ASN1T_NULLParams>(id_it_implicitConfirm),
    entry<ASN1T_ConfirmWaitTimeValue>(id_it_confirmWaitTime),
    entry<ASN1T_PKIMessages>(id_it_origPKIMessage),
    entry<ASN1T_SuppLangTagsValue>(id_it_suppLangTags),
    entry<ASN1T_PKIAudit>(id_Quorvex_it_PKIAudit),
    entry<ASN1T_ChangeNameReq>(id_Quorvex_it_ChangeNameReq),
    entry<ASN1T_RevDetails>(id_Quorvex_it_ResumeCertificate),
});

}  // namespace

const Type* extensionType(const ASN1TObjId& id) { return extensions.find(id); }

const Type* attributeTypeAndValueType(const ASN1TObjId& id) {
    return attributesAndControls.find(id);
}

const Type* attributeType(const ASN1TObjId& id) {
    const Type* type = requestAttributes.find(id);
    return type ? type : attributesAndControls.find(id);
}

const Type* policyQualifierType(const ASN1TObjId& id) { return policyQualifiers.find(id); }

const Type* infoType(const ASN1TObjId& id) { return infoTypes.find(id); }

}  // namespace asn1
