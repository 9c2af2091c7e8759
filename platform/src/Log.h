// Diagnostics of the platform's own code, through the same printer the
// services use, so that one Q7X_DEBUG_LEVEL governs every line.
#ifndef Q7X_LOG_H
#define Q7X_LOG_H

#include "Common.h"

#define Q7X_LOG(level, ...) \
    Common::gclDebugPrintf(level, __FILE_NAME__, __func__, __LINE__, __VA_ARGS__)

#endif  // Q7X_LOG_H
