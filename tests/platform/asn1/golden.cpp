#include "golden.h"

#include <gtest/gtest.h>

#include "platform/asn1/asn1data.h"

const std::map<std::string, const asn1::Type*>& typesByName() {
#define TYPE_BY_NAME(name) {#name, &Schema<asn1data::ASN1T_##name>::type},
    static const std::map<std::string, const asn1::Type*> types = {
        PKIXCMP_PKIX1EXPLICIT_TYPES(TYPE_BY_NAME)  //
        PKIXCMP_PKIX1IMPLICIT_TYPES(TYPE_BY_NAME)  //
        PKIXCMP_PKCS10_TYPES(TYPE_BY_NAME)         //
        PKIXCMP_PKIXCRMF_TYPES(TYPE_BY_NAME)       //
        PKIXCMP_PKIXCMP_TYPES(TYPE_BY_NAME)        //
        PKIXCMP_CMS_TYPES(TYPE_BY_NAME)};
#undef TYPE_BY_NAME
    return types;
}

void expectRoundTrip(const asn1::Type& type, const std::string& bytes, Xer kind) {
    ASN1CtxtRef copyContext, xerContext;
    void* copy = rtNewValue(copyContext.get(), type);
    void* read = rtNewValue(xerContext.get(), type);
    std::string xer, again;
    {
        ASN1BERDecodeBuffer buffer(octetsOf(bytes), bytes.size());
        void* value = rtNewValue(buffer.getCtxtPtr(), type);
        ASSERT_EQ(buffer.decode(type, value), ASN_OK) << rtErrGetText(buffer.getCtxtPtr());
        EXPECT_FALSE(buffer.lossy());
        EXPECT_EQ(hexOf(encodeOrError(type, value)), hexOf(bytes));
        ASSERT_EQ(rtCopyValue(copyContext.get(), type, value, copy), ASN_OK);
        ASSERT_EQ(rtEncodeXer(buffer.getCtxtPtr(), type, value, xer), ASN_OK)
            << rtErrGetText(buffer.getCtxtPtr());
    }  // the copy must not need what was decoded
    EXPECT_EQ(hexOf(encodeOrError(type, copy)), hexOf(bytes));
    ASSERT_EQ(rtDecodeXer(xerContext.get(), type, xer, read), ASN_OK)
        << rtErrGetText(xerContext.get()) << "\n"
        << xer;
    if (kind == Xer::exact) {
        EXPECT_EQ(hexOf(encodeOrError(type, read)), hexOf(bytes)) << xer;
    }
    EXPECT_EQ(rtEncodeXer(xerContext.get(), type, read, again), ASN_OK);
    EXPECT_EQ(again, xer);
}

// One encoding at least of every type, composed by hand from the ASN.1 text of its module. A type
// with several shapes has one for each; `$Type` means the last one above.

const std::vector<Golden>& goldenTable() {
    static const std::vector<Golden> table = {
        {"NULLParams", {"05{}"}},
        {"AlgorithmIdentifier",
         {"30{06{2A8648CE3D040302}}", "30{06{2A03}30{02{05}}}", "30{06{2A864886F70D01010B}05{}}"}},
        {"DirectoryString",
         {"12{'12'}", "13{'RU'}", "14{'T'}", "16{'a@b'}", "1C{0000004100010348}", "1E{00410416}",
          "0C{D096'x'}"}},
        {"PostalAddress", {"30{13{'Street 1'}$DirectoryString}"}},
        {"AttributeTypeAndValue",
         {"30{06{2A0304}04{0102}}", "30{06{550410}$PostalAddress}",
          "30{06{550403}$DirectoryString}"}},
        {"RelativeDistinguishedName",
         {"31{30{06{550406}13{'RU'}}}", "31{30{06{550403}13{'A'}}$AttributeTypeAndValue}"}},
        {"RDNSequence", {"30{}", "30{31{30{06{550406}13{'RU'}}}$RelativeDistinguishedName}"}},
        {"Name", {"$RDNSequence"}},
        {"AttributeValues", {"31{04{01}05{}}"}},
        {"Extension", {"30{06{2A0304}04{DEAD}}", "30{06{551D0F}01{FF}04{03{0204}}}"}},
        {"Extensions", {"30{$Extension 30{06{551D0E}04{04{0102}}}}"}},
        {"Attribute",
         {"30{06{2A864886F70D010907}31{13{'secret'}}}",
          "30{06{2A864886F70D01090E}31{$Extensions}}"}},
        {"Attributes", {"31{$Attribute}"}},
        {"Time", {"18{'20500101000000Z'}", "17{'250101000000Z'}"}},
        {"Validity", {"30{$Time 18{'20500101000000Z'}}"}},
        {"SubjectPublicKeyInfo", {"30{30{06{2A8648CE3D0201}06{2A8648CE3D030107}}03{00040102}}"}},
        {"TBSCertificate",
         {"30{02{05}$AlgorithmIdentifier $Name $Validity $Name $SubjectPublicKeyInfo}",
          "30{A0{02{02}}02{008001}$AlgorithmIdentifier $Name $Validity $Name $SubjectPublicKeyInfo "
          "81{00AA}82{04B0}A3{$Extensions}}"}},
        {"Certificate", {"30{$TBSCertificate $AlgorithmIdentifier 03{000102}}"}},
        {"CertificateSerialNumber", {"02{0080}"}},
        {"RevokedCertificate",
         {"30{02{06}18{'20500101000000Z'}}", "30{02{05}$Time 30{30{06{551D15}04{0A{01}}}}}"}},
        {"RevokedCertificates", {"30{$RevokedCertificate 30{02{06}18{'20500101000000Z'}}}"}},
        {"TBSCertList",
         {"30{$AlgorithmIdentifier $Name $Time}",
          "30{02{01}$AlgorithmIdentifier $Name $Time 17{'260101000000Z'}$RevokedCertificates "
          "A0{30{30{06{551D14}04{02{07}}}}}}"}},
        {"CertificateList", {"30{$TBSCertList $AlgorithmIdentifier 03{0001}}"}},

        {"KeyIdentifier", {"04{0102}"}},
        {"SubjectKeyIdentifier", {"04{0102}"}},
        {"KeyUsage", {"03{070280}"}},
        {"ReasonFlags", {"03{0106}"}},
        {"AnotherName", {"30{06{2A0304}A0{0C{'x'}}}"}},
        {"EDIPartyName", {"30{A1{0C{'b'}}}", "30{A0{13{'a'}}A1{0C{'b'}}}"}},
        {"GeneralName",
         {"A0{%AnotherName}", "81{'a@example.org'}", "A3{30{}}", "A4{$Name}", "A5{%EDIPartyName}",
          "86{'http://example.org/'}", "87{7F000001}", "88{2A0304}", "82{'example.org'}"}},
        {"GeneralNames", {"30{$GeneralName A4{$Name}}"}},
        {"CertificateIssuer", {"$GeneralNames"}},
        {"SubjectAltName", {"$GeneralNames"}},
        {"IssuerAltName", {"$GeneralNames"}},
        {"AuthorityKeyIdentifier", {"30{}", "30{80{01}A1{%GeneralNames}82{00F0}}"}},
        {"PrivateKeyUsagePeriod", {"30{80{'20250101000000Z'}81{'20260101000000Z'}}"}},
        {"CPSuri", {"16{'http://cps'}"}},
        {"DisplayText", {"16{'i'}", "1A{'v'}", "1E{0416}", "0C{D096}"}},
        {"NoticeReference", {"30{$DisplayText 30{02{01}02{0100}}}"}},
        {"UserNotice", {"30{}", "30{$NoticeReference $DisplayText}"}},
        {"PolicyQualifierInfo",
         {"30{06{2B06010505070201}$CPSuri}", "30{06{2B06010505070202}$UserNotice}"}},
        {"PolicyQualifiers", {"30{$PolicyQualifierInfo}"}},
        {"PolicyInformation", {"30{06{551D2000}$PolicyQualifiers}"}},
        {"CertificatePoliciesSyntax", {"30{$PolicyInformation 30{06{2A03}}}"}},
        {"PolicyMapping", {"30{06{2A03}06{2A04}}"}},
        {"PolicyMappingsSyntax", {"30{$PolicyMapping}"}},
        {"SubjectDirectoryAttributes", {"30{30{06{550403}31{13{'A'}}}}"}},
        {"BasicConstraintsSyntax", {"30{}", "30{01{FF}02{03}}"}},
        {"GeneralSubtree", {"30{82{'example.org'}81{05}}", "30{82{'example.org'}80{01}}"}},
        {"GeneralSubtrees", {"30{$GeneralSubtree}"}},
        {"NameConstraintsSyntax", {"30{A0{%GeneralSubtrees}A1{%GeneralSubtrees}}"}},
        {"PolicyConstraintsSyntax", {"30{80{00}81{01}}"}},
        {"DistributionPointName", {"A1{%RelativeDistinguishedName}", "A0{%GeneralNames}"}},
        {"DistributionPoint", {"30{A0{$DistributionPointName}81{0106}A2{%GeneralNames}}"}},
        {"CRLDistPointsSyntax", {"30{$DistributionPoint 30{A2{%GeneralNames}}}"}},
        {"ExtKeyUsageSyntax", {"30{06{2B06010505070301}06{2A03}}"}},
        {"InhibitAnyPolicy", {"02{00}"}},
        {"AccessDescription", {"30{06{2B06010505073001}86{'http://ocsp'}}"}},
        {"AuthorityInfoAccessSyntax", {"30{$AccessDescription}"}},
        {"SubjectInfoAccessSyntax", {"30{$AccessDescription}"}},
        {"CRLNumber", {"02{0100}"}},
        {"BaseCRLNumber", {"02{7F}"}},
        {"IssuingDistributionPoint",
         {"30{}", "30{A0{$DistributionPointName}81{FF}82{FF}83{0106}84{FF}85{FF}}"}},
        {"CRLReason", {"0A{01}"}},
        {"HoldInstruction", {"06{2A8648CE380201}"}},
        {"InvalidityDate", {"18{'20250101000000Z'}"}},
        {"CAVersion", {"02{010003}"}},

        {"CertificationRequest_certificationRequestInfo",
         {"30{02{00}$Name $SubjectPublicKeyInfo A0{%Attributes}}"}},
        {"CertificationRequest",
         {"30{$CertificationRequest_certificationRequestInfo $AlgorithmIdentifier 03{0001}}"}},

        {"OptionalValidity", {"30{A0{$Time}A1{18{'20500101000000Z'}}}"}},
        {"CertTemplate",
         {"30{}",
          "30{80{02}81{05}A2{%AlgorithmIdentifier}A3{$Name}A4{%OptionalValidity}A5{$Name}"
          "A6{%SubjectPublicKeyInfo}87{0001}88{0002}A9{%Extensions}}"}},
        {"CertId", {"30{A4{$Name}02{05}}"}},
        {"SinglePubInfo", {"30{02{02}86{'http://x'}}"}},
        {"PKIPublicationInfo", {"30{02{01}30{$SinglePubInfo}}"}},
        {"EncryptedValue",
         {"30{03{0002}}",
          "30{A0{%AlgorithmIdentifier}A1{%AlgorithmIdentifier}82{0001}A3{%AlgorithmIdentifier}"
          "84{01}03{0002}}"}},
        {"EncryptedKey",
         {"A0{02{00}31{}30{06{2A864886F70D010701}30{06{2A03}}}}", "$EncryptedValue"}},
        {"PKIArchiveOptions", {"81{01}", "82{FF}", "A0{$EncryptedKey}"}},
        {"RegToken", {"0C{'token'}"}},
        {"Authenticator", {"0C{'mother'}"}},
        {"UTF8Pairs", {"0C{'a?b%'}"}},
        {"Controls",
         {"30{30{06{2B0601050507050101}$RegToken}30{06{2B0601050507050102}$Authenticator}"
          "30{06{2B0601050507050103}$PKIPublicationInfo}"
          "30{06{2B0601050507050104}$PKIArchiveOptions}30{06{2B0601050507050105}$CertId}"
          "30{06{2B0601050507050106}$SubjectPublicKeyInfo}}"}},
        {"CertRequest", {"30{02{00}30{}}", "30{02{FF}$CertTemplate $Controls}"}},
        {"PKMACValue", {"30{$AlgorithmIdentifier 03{0001}}"}},
        {"POPOSigningKeyInput_authInfo", {"A0{82{'x'}}", "$PKMACValue"}},
        {"POPOSigningKeyInput", {"30{$POPOSigningKeyInput_authInfo $SubjectPublicKeyInfo}"}},
        {"POPOSigningKey", {"30{A0{%POPOSigningKeyInput}$AlgorithmIdentifier 03{0001}}"}},
        {"POPOPrivKey",
         {"80{0001}", "82{0002}", "A3{%PKMACValue}",
          "A4{02{00}31{}30{06{2A864886F70D010701}30{06{2A03}}}}", "81{01}"}},
        {"ProofOfPossession",
         {"80{}", "A2{$POPOPrivKey}", "A3{$POPOPrivKey}", "A1{%POPOSigningKey}"}},
        {"CertReqMsg",
         {"30{$CertRequest A1{$AlgorithmIdentifier 03{0001}}}",
          "30{$CertRequest $ProofOfPossession 30{30{06{2B0601050507050201}$UTF8Pairs}"
          "30{06{2B0601050507050202}$CertRequest}}}"}},
        {"CertReqMessages", {"30{$CertReqMsg}"}},
        {"PBMParameter", {"30{04{0102}$AlgorithmIdentifier 02{01F4}$AlgorithmIdentifier}"}},

        {"PKIFreeText", {"30{0C{'a'}0C{D096}}"}},
        {"CAKeyUpdAnnContent", {"30{$Certificate $Certificate $Certificate}"}},
        {"SignKeyPairTypesValue", {"30{$AlgorithmIdentifier}"}},
        {"EncKeyPairTypesValue", {"30{$AlgorithmIdentifier}"}},
        {"UnsupportedOIDsValue", {"30{06{2A03}}"}},
        {"KeyPairParamReqValue", {"06{2A03}"}},
        {"ConfirmWaitTimeValue", {"18{'20250101000000Z'}"}},
        {"SuppLangTagsValue", {"30{0C{'en'}}"}},
        {"PKIAudit", {"30{02{01}02{00FFFFFFFF}02{7F}01{FF}}"}},
        {"ChangeNameReq", {"30{$Name $Name A0{$PKIFreeText}A1{$PKIFreeText}}"}},
        {"RevDetails",
         {"30{$CertTemplate}", "30{$CertTemplate $ReasonFlags 18{'20250101000000Z'}$Extensions}"}},
        {"InfoTypeAndValue",
         {"30{06{2B06010505070401}$Certificate}", "30{06{2B06010505070402}$SignKeyPairTypesValue}",
          "30{06{2B06010505070403}$EncKeyPairTypesValue}",
          "30{06{2B06010505070404}$AlgorithmIdentifier}",
          "30{06{2B06010505070405}$CAKeyUpdAnnContent}", "30{06{2B06010505070406}$CertificateList}",
          "30{06{2B06010505070407}$UnsupportedOIDsValue}",
          "30{06{2B0601050507040A}$KeyPairParamReqValue}",
          "30{06{2B0601050507040B}$AlgorithmIdentifier}", "30{06{2B0601050507040C}$EncryptedValue}",
          "30{06{2B0601050507040E}$ConfirmWaitTimeValue}",
          "30{06{2B06010505070410}$SuppLangTagsValue}", "30{06{2A850302022901}$PKIAudit}",
          "30{06{2A850302022902}$ChangeNameReq}", "30{06{2A850302022903}$RevDetails}",
          "30{06{2B0601050507040D}05{}}"}},
        {"GenMsgContent", {"30{$InfoTypeAndValue 30{06{2A03}}}"}},
        {"GenRepContent", {"30{30{06{2B06010505070406}$CertificateList}}"}},
        {"PKIHeader",
         {"30{02{02}$GeneralName A4{30{}}}",
          "30{02{02}$GeneralName A4{$Name}A0{18{'20250101000000Z'}}A1{$AlgorithmIdentifier}"
          "A2{04{01}}A3{04{02}}A4{04{03}}A5{04{04}}A6{04{05}}A7{$PKIFreeText}A8{$GenMsgContent}}"}},
        {"PKIStatusInfo", {"30{02{00}}", "30{02{02}$PKIFreeText 03{0520}}"}},
        {"Certificates", {"30{$Certificate}"}},
        {"OOBCertHash", {"30{03{0001}}", "30{A0{$AlgorithmIdentifier}A1{$CertId}03{0001}}"}},
        {"DHBMParameter", {"30{$AlgorithmIdentifier 30{06{2A03}}}"}},
        {"CertOrEncCert", {"A1{$EncryptedValue}", "A0{$Certificate}"}},
        {"CertifiedKeyPair", {"30{$CertOrEncCert A0{$EncryptedValue}A1{$PKIPublicationInfo}}"}},
        {"CertResponse",
         {"30{02{FF}$PKIStatusInfo}", "30{02{00}$PKIStatusInfo $CertifiedKeyPair 04{01}}"}},
        {"CertRepMessage", {"30{30{$CertResponse}}", "30{A1{$Certificates}30{$CertResponse}}"}},
        {"Challenge", {"30{04{01}04{02}}", "30{$AlgorithmIdentifier 04{01}04{02}}"}},
        {"POPODecKeyChallContent", {"30{$Challenge}"}},
        {"POPODecKeyRespContent", {"30{02{00F0}02{05}}"}},
        {"KeyRecRepContent",
         {"30{$PKIStatusInfo A0{$Certificate}A1{$Certificates}A2{30{$CertifiedKeyPair}}}"}},
        {"RevReqContent", {"30{30{$CertTemplate $Extensions}}"}},
        {"RevRepContent", {"30{30{$PKIStatusInfo}A0{30{$CertId}}A1{30{$CertificateList}}}"}},
        {"RevAnnContent",
         {"30{02{05}$CertId 18{'20250101000000Z'}18{'20240101000000Z'}$Extensions}"}},
        {"CRLAnnContent", {"30{$CertificateList}"}},
        {"CertStatus", {"30{04{01}02{00}$PKIStatusInfo}"}},
        {"CertConfirmContent", {"30{$CertStatus}"}},
        {"ErrorMsgContent", {"30{$PKIStatusInfo}", "30{$PKIStatusInfo 02{07}$PKIFreeText}"}},
        {"PollReq", {"30{02{00}}"}},
        {"PollReqContent", {"30{$PollReq}"}},
        {"PollRep", {"30{02{00}02{3C}$PKIFreeText}"}},
        {"PollRepContent", {"30{$PollRep}"}},
        {"PKIBody", {"A0{$CertReqMessages}",       "A1{$CertRepMessage}",
                     "A2{$CertReqMessages}",       "A3{$CertRepMessage}",
                     "A4{$CertificationRequest}",  "A5{$POPODecKeyChallContent}",
                     "A6{$POPODecKeyRespContent}", "A7{$CertReqMessages}",
                     "A8{$CertRepMessage}",        "A9{$CertReqMessages}",
                     "AA{$KeyRecRepContent}",      "AB{$RevReqContent}",
                     "AC{$RevRepContent}",         "AD{$CertReqMessages}",
                     "AE{$CertRepMessage}",        "AF{$CAKeyUpdAnnContent}",
                     "B0{$Certificate}",           "B1{$RevAnnContent}",
                     "B2{$CRLAnnContent}",         "B5{$GenMsgContent}",
                     "B6{$GenRepContent}",         "B7{$ErrorMsgContent}",
                     "B8{$CertConfirmContent}",    "B9{$PollReqContent}",
                     "BA{$PollRepContent}",        "B3{05{}}"}},
        {"PKIMessages", {"30{30{$PKIHeader $PKIBody}}"}},
        {"PKIBody", {"B4{$PKIMessages}"}},
        {"ProtectedPart", {"30{$PKIHeader B3{05{}}}"}},
        {"PKIMessage", {"30{$PKIHeader $PKIBody A0{03{0001}}A1{$Certificates}}"}},
        {"InfoTypeAndValue", {"30{06{2B0601050507040F}$PKIMessages}"}},

        {"IssuerAndSerialNumber", {"30{$Name 02{0080}}"}},
    };
    return table;
}
