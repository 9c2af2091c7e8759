// Inside the scenario reader: the signals that carry no running state, each
// turned into one message, and the number readers all signals share.
#ifndef ZELFORMATS_SCENARIOSIGNALS_H
#define ZELFORMATS_SCENARIOSIGNALS_H

#include <stdint.h>

#include <string>
#include <vector>

namespace zelscenario::detail {

// A whole number in lo..hi: decimal, or hexadecimal with 0x.
bool parseWhole(const std::string& text, unsigned long long lo, unsigned long long hi,
                unsigned long long& out);
// A finite decimal number.
bool parseReal(const std::string& text, double& out);

// "what: 'text' is not ..." messages, one form for all signals.
std::string notA(const std::string& what, const std::string& text, const std::string& kind);

// One stateless signal: words[0] is its name. Sets `id` and `payload`; false
// with `error` for a refusal. `known` is false when words[0] is none of them.
bool encodeStateless(const std::vector<std::string>& words, unsigned& id,
                     std::vector<uint8_t>& payload, bool& known, std::string& error);

}  // namespace zelscenario::detail

#endif  // ZELFORMATS_SCENARIOSIGNALS_H
