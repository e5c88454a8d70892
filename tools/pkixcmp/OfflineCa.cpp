#include "tools/pkixcmp/OfflineCa.h"

#include <memory>

#include "tools/pkixcmp/Files.h"
#include "tools/pkixcmp/Keys.h"

namespace tool {

void addOfflineOptions(CLI::App* command, OfflineOptions& options) {
    command->add_option("--ca", options.ca, "Path of the CA in the configuration tree")->required();
    command->add_option("--reqin", options.reqin, "File of the request, a PKIMessage")->required();
    command->add_option("--rspout", options.rspout, "File for the answer, DER")->required();
    addPinOption(command, options.pin);
}

OfflineCa::OfflineCa(OfflineOptions& options, const IssuePolicy& policy)
    : request_(readObject(options.reqin)) {
    readCaPin(options.ca, options.pin, dialogue_);
    ca_ = openCa(options.ca, dialogue_);
    responder_ = std::make_unique<Responder>(*ca_, policy);
}

}  // namespace tool
