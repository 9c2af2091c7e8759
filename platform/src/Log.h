// Diagnostics of the platform's own code, through the same printer the
// services use, so that one Q7X_DEBUG_LEVEL governs every line.
#ifndef Q7X_LOG_H
#define Q7X_LOG_H

#include <string.h>

#include <string>

#include "Common.h"

#define Q7X_LOG(level, ...) \
    Common::gclDebugPrintf(level, __FILE_NAME__, __func__, __LINE__, __VA_ARGS__)

namespace q7x {

// The text of an errno value, the same as strerror's, but safe beside the
// other threads of the process (strerror may share one buffer among them).
inline std::string ErrorText(int err) {
    char buffer[128];
    return strerror_r(err, buffer, sizeof buffer);
}

}  // namespace q7x

#endif  // Q7X_LOG_H
