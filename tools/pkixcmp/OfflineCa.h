#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "tools/pkixcmp/Ca.h"
#include "tools/pkixcmp/Context.h"
#include "tools/pkixcmp/Secrets.h"

namespace tool {

/// What `issue` and `reject` have in common: a CA, a request from a file, an answer to a file.
struct OfflineOptions {
    std::string ca, reqin, rspout, pin;
};
void addOfflineOptions(CLI::App* command, OfflineOptions& options);

/// An open CA that answers requests from files.
class OfflineCa {
public:
    OfflineCa(OfflineOptions& options, const IssuePolicy& policy);
    Responder& responder() { return *responder_; }
    const CACMPT_BLOB& request() const { return request_; }

private:
    CACMPT_BLOB request_;
    CallerWndProv dialogue_;
    std::unique_ptr<PKIXCMP_Server> ca_;
    std::unique_ptr<Responder> responder_;
};

}  // namespace tool
