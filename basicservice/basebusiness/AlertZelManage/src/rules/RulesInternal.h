// Helpers shared by the sources of rule provisioning. Everything here runs on
// the worker thread, inside a rule or area handler that holds a BusyScope.
#ifndef ALERTZEL_RULES_INTERNAL_H
#define ALERTZEL_RULES_INTERNAL_H

#include <stdint.h>

#include <map>

#include "AlertZelManage.h"

namespace zel {

// The area map warns above this many entries but never refuses one.
const size_t kAreaSoftLimit = 100;

// Sets the flag of `id`, inserting an entry when there is none. True when an
// insertion left the map above its soft limit.
bool setAreaFlag(std::map<uint32_t, bool>& areas, uint32_t id, bool inside);
// Inserts `id` as outside unless it has an entry. True when the insertion
// left the map above its soft limit.
bool addAreaIfAbsent(std::map<uint32_t, bool>& areas, uint32_t id);

// Parses the JSON payload of a bus message over exactly `payload` bytes
// behind the head. False when the text is not JSON, also when the reader
// gives up with an exception (nesting too deep).
bool parsePayload(const char* msg, uint32_t payload, Json::Value& root);

// True when `root` is an object whose member `key` is an array.
bool hasArray(const Json::Value& root, const char* key);

// The removal of one id, shared by the delete and the cover command: the
// alert of that id ends, its area entry goes, and the first rule of that id is
// unlinked and freed. Lines are printed on behalf of `func`. The stop may wait
// for storage; rule messages arriving meanwhile are held by the caller's
// BusyScope.
void removeOneRule(CAlertZelManage& service, unsigned int alertID, const char* func);

}  // namespace zel

#endif  // ALERTZEL_RULES_INTERNAL_H
