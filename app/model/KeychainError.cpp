#include "model/KeychainError.h"

// Kept apart from the header: the password store's code includes glib, whose headers can't
// follow Qt's.
#include "model/PlatformWords.h"

namespace qs {

KeychainError::KeychainError(int code, const std::string& message)
    : std::runtime_error(message.empty() ? PlatformWords::adapt(u"Keychain error ").toStdString() +
                                               std::to_string(code)
                                         : message),
      code_(code) {}

} // namespace qs
