#include "platform/crypt/PinCallback.h"

#include <mutex>

namespace provider {
namespace {

std::mutex callbackMutex;
QXCryptPinCallback installed = nullptr;
void* installedContext = nullptr;

std::optional<Secret> ask(QXCryptPinCallback callback, void* context) {
    Secret pin(longestPin + 1);
    if (!callback(context, pin.data(), pin.size())) return std::nullopt;
    pin.resize(strnlen(pin.data(), longestPin));
    return pin;
}

}  // namespace

Container::PinQuestion pinQuestion() {
    QXCryptPinCallback callback = nullptr;
    void* context = nullptr;
    QXCryptGetPinCallback(&callback, &context);
    if (callback == nullptr) return nullptr;
    return [=] { return ask(callback, context); };
}

}  // namespace provider

void QXCryptGetPinCallback(QXCryptPinCallback* callback, void** context) {
    const std::lock_guard guard(provider::callbackMutex);
    if (callback != nullptr) *callback = provider::installed;
    if (context != nullptr) *context = provider::installedContext;
}

void QXCryptSetPinCallback(QXCryptPinCallback callback, void* context) {
    const std::lock_guard guard(provider::callbackMutex);
    provider::installed = callback;
    provider::installedContext = context;
}
