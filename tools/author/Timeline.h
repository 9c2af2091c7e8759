// The timeline of a replay as an SVG picture: for each rule one group
// (<g class="rule">) with a lane per trigger, its signal as sampled after
// each pass against its threshold, and a lane with the rule's Holding and
// Running spans. A shared time axis runs below.
#ifndef ZELAUTHOR_TIMELINE_H
#define ZELAUTHOR_TIMELINE_H

#include <string>

#include "Replay.h"

namespace zelauthor {

std::string timelineSvg(const ReplayResult& result);
// False with `error` when the file can't be written.
bool writeTimeline(const std::string& path, const ReplayResult& result, std::string& error);

}  // namespace zelauthor

#endif  // ZELAUTHOR_TIMELINE_H
