#include "pkixcmp/Protection.h"

#include "capilite/CAException.h"
#include "capilite/DecodeBuffer.h"
#include "capilite/RecordHelpers.h"
#include "pkixcmp/MessageCoding.h"

using namespace asn1data;

CACMPT_BLOB ASN1CMPMessage_Sign(ASN1T_PKIMessage& message, ASN1BEREncodeBuffer& buffer,
                                unsigned long long provider, unsigned int keySpec,
                                const std::list<CACMPT_BLOB>& extraCerts) {
    ASN1CTXT* context = buffer.getCtxtPtr();
    message.header.protectionAlg = *ASN1T_AlgorithmIdentifier_set(context, provider, keySpec);
    message.header.m.protectionAlgPresent = true;
    if (!message.m.extraCertsPresent) message.extraCerts.clear();
    // Header and body alone are encoded as RFC 4210's ProtectedPart.
    message.m.protectionPresent = false;
    message.m.extraCertsPresent = false;
    ASN1C_PKIMessage control(buffer, message);
    message.protection = *ASN1EncodeBuffer_EncodeAndSign(provider, keySpec, buffer, control);
    message.m.protectionPresent = true;
    if (!extraCerts.empty()) {
        message.m.extraCertsPresent = true;
        // Over the same context, so that the certificates live as long as the message.
        CACMPT_ASN1BERDecodeBuffer decodeBuffer(buffer.getContext());
        add_extra_certs(decodeBuffer, message, extraCerts);
    }
    if (control.Encode() <= 0) PKIXCMP_THROW(Asn1Exception, rtErrGetText(context));
    return CACMPT_BLOB(buffer.getMsgPtr(), buffer.getMsgLen());
}

void MakeProofOfPosession(unsigned long long provider, ASN1BEREncodeBuffer& buffer,
                          ASN1T_CertReqMsg& message, unsigned int keySpec) {
    auto* proof = asn1New<ASN1T_POPOSigningKey>(buffer.getCtxtPtr());
    if (proof == nullptr) PKIXCMP_THROW(CAException, "out of memory");
    message.m.popoPresent = true;
    message.popo.t = ASN1T_ProofOfPossession::T_signature;
    message.popo.u.signature = proof;
    proof->algorithmIdentifier = message.certReq.certTemplate.publicKey.algorithm;
    ASN1C_CertTemplate control(buffer, message.certReq.certTemplate);
    proof->signature = *ASN1EncodeBuffer_EncodeAndSign(provider, keySpec, buffer, control);
}
