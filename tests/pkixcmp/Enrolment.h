#pragma once

#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <set>
#include <string>

#include "capilite/Handles.h"
#include "capilite/RecordCoding.h"
#include "capilite/RecordHelpers.h"
#include "capilite/StoreFind.h"
#include "config/Ini.h"
#include "pkixcmp/Client.h"
#include "pkixcmp/KeyContainers.h"
#include "pkixcmp/MessageCoding.h"
#include "pkixcmp/Protection.h"
#include "pkixcmp/Server.h"
#include "platform/crypt/CryptApi.h"
#include "tests/PublicTool.h"
#include "tests/TempHome.h"
#include "tests/capilite/Failure.h"
#include "tests/capilite/Hex.h"

// A CA and clients with keys that need no person, and public tools to judge what they make.

using namespace asn1data;

/// A DER value with the buffer it lives in.
template <class T>
struct Decoded {
    CACMPT_ASN1BERDecodeBuffer buffer;
    T value;
    explicit Decoded(const CACMPT_BLOB& der) { asn1DecodeRecord(buffer, der, value); }
    T* operator->() { return &value; }
    ASN1CTXT* ctxt() { return buffer.getCtxtPtr(); }
};

inline CACMPT_BLOB readFile(const std::string& path) {
    CACMPT_BLOB content;
    content.readFromFile(path.c_str());
    return content;
}

/// A certificate as its record shows it.
struct Shown : CertificateInfo {
    explicit Shown(const CACMPT_BLOB& certificate) { PKIXCMP_Base::Cert_Decode(certificate, this); }
};
/// What a server makes of a message, ready to be issued.
struct Prepared : CertificateInfo {
    Prepared(PKIXCMP_Server& ca, const CACMPT_BLOB& message) {
        ca.CertReqMessage_PreProcess(message, this);
    }
};
inline CACMPT_BLOB replyTo(PKIXCMP_Server& ca, CertificateInfo& record) {
    CACMPT_BLOB reply;
    ca.CertReqMessage_Process(&record, reply);
    return reply;
}
/// The head of a message as its record shows it.
inline PKIXCMP_Message headOf(ASN1T_PKIMessage& message) {
    PKIXCMP_Message head;
    ASN1CMPMessage_Parse(message, head);
    return head;
}

/// A message changed by hand, as a peer could have made it.
inline CACMPT_BLOB edited(const CACMPT_BLOB& message,
                          const std::function<void(ASN1T_PKIMessage&, ASN1CTXT*)>& change) {
    Decoded<ASN1T_PKIMessage> decoded(message);
    change(decoded.value, decoded.ctxt());
    return asn1EncodeRecord(decoded.value);
}
/// The same for the certificate template of an ir.
inline CACMPT_BLOB withTemplate(const CACMPT_BLOB& ir,
                                const std::function<void(ASN1T_CertTemplate&)>& change) {
    return edited(ir, [&](ASN1T_PKIMessage& m, ASN1CTXT*) {
        change(m.body.u.ir->front().certReq.certTemplate);
    });
}

/// `failureOf` that also looks at the source the failure comes from.
template <class Call>
std::string failure(Call call, const char* source = nullptr) {
    return failureOf([&] {
        try {
            call();
        } catch (const CAException& e) {
            EXPECT_TRUE(source == nullptr || e.file == source) << e.what();
            throw;
        }
    });
}

inline std::string dotted(const ASN1TObjId& oid) { return rtOidToString(oid); }

inline CACMPT_Extension extension(const char* oid, const std::string& xml, bool critical = false) {
    return CACMPT_Extension(oid, xml, critical);
}

class EnrolmentTest : public testing::Test {
protected:
    static constexpr const char* caPath = "\\local\\ca";

    /// A CA under a path of its own, with the container of the same name.
    std::unique_ptr<PKIXCMP_Server> makeCa(const char* path = caPath, const char* cdp = nullptr,
                                           const CACMPT_Period& validity = CACMPT_Period::OneYear,
                                           CACMPT_Extensions extensions = {}) {
        const std::string container =
            "\\\\.\\VAULT\\" + std::string(path).substr(std::string(path).rfind('\\') + 1);
        extensions.Insert(
            extension("2.5.29.15", "<KeyUsage><keyCertSign/><cRLSign/></KeyUsage>", true));
        return std::unique_ptr<PKIXCMP_Server>(PKIXCMP_Server::GenerateRoot(
            path, L"CN=Trial Root, O=Trial", extensions, L"Trial", false, nullptr, PROV_ECDSA_P256,
            container.c_str(), validity, CACMPT_Date(0, 0), cdp, CACMPT_Period::OneDay, &wnd));
    }

    /// A client with a new key.
    std::unique_ptr<PKIXCMP_Client> makeClient(const char* name, unsigned long keySpec = 2) {
        const std::string container = std::string("\\\\.\\VAULT\\") + name;
        return std::unique_ptr<PKIXCMP_Client>(PKIXCMP_Client::GenerateKeyPair(
            wnd, nullptr, nullptr, PROV_ECDSA_P256, container.c_str(), keySpec, false));
    }

    static std::unique_ptr<RequestInfo> makeRequest(
        std::int32_t type = REQUEST_TYPE_INIT_CERTIFICATE) {
        auto request = std::make_unique<RequestInfo>();
        request->RequestType = type;
        request->Subject.assign(L"CN=Alice, O=Trial");
        std::wcscpy(request->RecipientGeneralName, L"dn:CN=Trial Root, O=Trial");
        return request;
    }

    static CACMPT_BLOB send(PKIXCMP_Client& client, RequestInfo& request) {
        CACMPT_BLOB message;
        client.CertReqMessage_EncodeAndSign(&request, message);
        return message;
    }
    CACMPT_BLOB makeIr(PKIXCMP_Client& client) { return send(client, *makeRequest()); }

    /// The certificate in a reply.
    static CACMPT_BLOB certificateOf(const CACMPT_BLOB& reply) {
        CertificateInfo info;
        PKIXCMP_Base::CertRepMessage_Decode(reply, &info);
        return info.RawCertificate;
    }
    static CACMPT_BLOB issue(PKIXCMP_Server& ca, const CACMPT_BLOB& message) {
        Prepared record(ca, message);
        return certificateOf(replyTo(ca, record));
    }

    /// Certificates in a store of the user, or of the machine.
    static std::list<CACMPT_BLOB> stored(const wchar_t* store, bool system = false) {
        std::list<CACMPT_BLOB> found;
        PKIXCMP_Base::CertStore_Find(found, store, nullptr, "", system);
        return found;
    }

    std::string file(const char* name, const CACMPT_BLOB& content) {
        const std::string path = home.path() / name;
        content.writeToFile(path.c_str());
        return path;
    }
    static std::string openssl(const std::string& arguments) {
        return runTool("openssl " + arguments, "");
    }
    /// A certificate with every extension that openssl writes and the library knows, and one that
    /// it does not.
    CACMPT_BLOB withAllExtensions(const std::string& options) {
        const std::string path = home.path() / "all.cer";
        openssl("req -x509 -nodes -config " PKIXCMP_TEST_DATA
                "/messages/extensions.cnf -extensions x -keyout " +
                path + ".key -outform DER -out " + path + " -newkey " + options);
        return readFile(path);
    }
    std::string print(const CACMPT_BLOB& certificate) {
        return openssl("x509 -inform DER -noout -text -in " + file("print.cer", certificate));
    }
    /// True when a certificate verifies under a root; else the tool's words are thrown.
    bool verifies(const CACMPT_BLOB& root, const CACMPT_BLOB& certificate) {
        const std::string at = home.path();
        openssl("x509 -inform DER -in " + file("ca.cer", root) + " -out " + at + "/ca.pem");
        openssl("x509 -inform DER -in " + file("ee.cer", certificate) + " -out " + at + "/ee.pem");
        return openssl("verify -x509_strict -CAfile " + at + "/ca.pem " + at + "/ee.pem")
            .ends_with(": OK\n");
    }

    TempHome home;
    OldWndProv wnd{std::string("VAULT"), ""};
};
