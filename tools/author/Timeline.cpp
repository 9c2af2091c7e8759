#include "Timeline.h"

#include <errno.h>
#include <math.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <sstream>

#include "AlertZelManage.h"

namespace zelauthor {

namespace {

const double kWidth = 960;
const double kLeft = 170;   // room for lane labels
const double kRight = 20;
const double kTitle = 22;
const double kLane = 54;
const double kLaneGap = 8;
const double kStateLane = 16;
const double kRuleGap = 18;
const double kAxis = 34;
const char* const kTypes[3] = {"GT", "LT", "EQ"};

std::string num(double v) {
    char buf[32];
    snprintf(buf, sizeof buf, "%.1f", v);
    return buf;
}

std::string escape(const std::string& s) {
    std::string out;
    for (char c : s) {
        if (c == '&') out += "&amp;";
        else if (c == '<') out += "&lt;";
        else if (c == '>') out += "&gt;";
        else if (c == '"') out += "&quot;";
        else out += c;
    }
    return out;
}

std::string threshold(double v) {
    char buf[32];
    snprintf(buf, sizeof buf, "%.10g", v);
    std::string s = buf;
    if (s.find_first_of(".eEn") == std::string::npos) s += ".0";
    return s;
}

// A tick step of 1, 2 or 5 times a power of ten giving about ten ticks.
double tickStep(double span) {
    double raw = std::max(span, 1e-9) / 10;
    double p = pow(10, floor(log10(raw)));
    for (double m : {1.0, 2.0, 5.0})
        if (raw <= m * p) return m * p;
    return 10 * p;
}

struct Scale {
    double t0, t1, x0, x1;
    double x(double t) const { return x0 + (t - t0) / (t1 - t0) * (x1 - x0); }
};

void trigger(std::ostringstream& svg, const RuleTrace::Trigger& trig, const Scale& sx, double top) {
    double lo = trig.threshold, hi = trig.threshold;
    for (const auto& s : trig.samples)
        if (!std::isnan(s.second)) {
            lo = std::min(lo, s.second);
            hi = std::max(hi, s.second);
        }
    double pad = (hi - lo) * 0.1;
    if (pad == 0) pad = std::max(1.0, fabs(hi) * 0.1);
    lo -= pad;
    hi += pad;
    auto y = [&](double v) { return top + kLane - (v - lo) / (hi - lo) * kLane; };

    svg << "    <rect class=\"lane\" x=\"" << num(sx.x0) << "\" y=\"" << num(top) << "\" width=\""
        << num(sx.x1 - sx.x0) << "\" height=\"" << num(kLane)
        << "\" fill=\"#f7f7f7\" stroke=\"#ddd\"/>\n";
    svg << "    <text x=\"" << num(kLeft - 8) << "\" y=\"" << num(top + kLane / 2 + 4)
        << "\" text-anchor=\"end\">" << escape(EVENT_NAME[trig.event % kEventCount]) << " "
        << kTypes[trig.type % 3] << " " << threshold(trig.threshold) << "</text>\n";
    svg << "    <line class=\"threshold\" x1=\"" << num(sx.x0) << "\" y1=\""
        << num(y(trig.threshold)) << "\" x2=\"" << num(sx.x1) << "\" y2=\""
        << num(y(trig.threshold)) << "\" stroke=\"#c0392b\" stroke-dasharray=\"4 3\"/>\n";
    // The value holds from one sample to the next: a step line, broken
    // where the event has no value.
    std::string points;
    double last = NAN;
    auto flush = [&]() {
        if (!points.empty())
            svg << "    <polyline class=\"signal\" fill=\"none\" stroke=\"#2471a3\" "
                   "stroke-width=\"1.5\" points=\""
                << points << "\"/>\n";
        points.clear();
    };
    double lastT = 0;
    for (const auto& s : trig.samples) {
        bool changed = std::isnan(last) != std::isnan(s.second) ||
                       (!std::isnan(last) && last != s.second);
        if (changed && !std::isnan(last)) {
            points += num(sx.x(s.first)) + "," + num(y(last)) + " ";
            if (std::isnan(s.second)) flush();
        }
        if (changed && !std::isnan(s.second))
            points += num(sx.x(s.first)) + "," + num(y(s.second)) + " ";
        last = s.second;
        lastT = s.first;
    }
    if (!std::isnan(last)) points += num(sx.x(lastT)) + "," + num(y(last)) + " ";
    flush();
}

void spans(std::ostringstream& svg, const std::vector<Span>& list, const Scale& sx, double top,
           const char* cls, const char* colour) {
    for (const Span& s : list)
        svg << "    <rect class=\"" << cls << "\" x=\"" << num(sx.x(s.from)) << "\" y=\""
            << num(top) << "\" width=\"" << num(std::max(1.0, sx.x(s.to) - sx.x(s.from)))
            << "\" height=\"" << num(kStateLane) << "\" fill=\"" << colour << "\"/>\n";
}

}  // namespace

std::string timelineSvg(const ReplayResult& r) {
    Scale sx{0, std::max(r.duration, 1.0), kLeft, kWidth - kRight};
    double height = 10;
    for (const RuleTrace& rule : r.rules)
        height += kTitle + rule.triggers.size() * (kLane + kLaneGap) + kStateLane + kRuleGap;
    height += kAxis;

    std::ostringstream svg;
    svg << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << num(kWidth) << "\" height=\""
        << num(height) << "\" viewBox=\"0 0 " << num(kWidth) << " " << num(height)
        << "\" font-family=\"sans-serif\" font-size=\"12\">\n";
    svg << "  <title>alert timeline from " << escape(r.clockAtZero) << "</title>\n";
    svg << "  <rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
    double y = 10;
    for (size_t i = 0; i < r.rules.size(); ++i) {
        const RuleTrace& rule = r.rules[i];
        svg << "  <g class=\"rule\" id=\"rule-" << i << "\" data-alert=\"" << rule.id << "\">\n";
        svg << "    <text x=\"8\" y=\"" << num(y + 15) << "\" font-weight=\"bold\">alert "
            << rule.id << "</text>\n";
        y += kTitle;
        for (const RuleTrace::Trigger& trig : rule.triggers) {
            trigger(svg, trig, sx, y);
            y += kLane + kLaneGap;
        }
        svg << "    <text x=\"" << num(kLeft - 8) << "\" y=\"" << num(y + 12)
            << "\" text-anchor=\"end\">holding / running</text>\n";
        svg << "    <rect x=\"" << num(sx.x0) << "\" y=\"" << num(y) << "\" width=\""
            << num(sx.x1 - sx.x0) << "\" height=\"" << num(kStateLane)
            << "\" fill=\"#f7f7f7\" stroke=\"#ddd\"/>\n";
        spans(svg, rule.holding, sx, y, "holding", "#f5b041");
        spans(svg, rule.running, sx, y, "running", "#e74c3c");
        y += kStateLane + kRuleGap;
        svg << "  </g>\n";
    }
    svg << "  <g class=\"axis\">\n";
    svg << "    <line x1=\"" << num(sx.x0) << "\" y1=\"" << num(y) << "\" x2=\"" << num(sx.x1)
        << "\" y2=\"" << num(y) << "\" stroke=\"#333\"/>\n";
    double step = tickStep(sx.t1 - sx.t0);
    for (double t = 0; t <= sx.t1 + 1e-9; t += step)
        svg << "    <text x=\"" << num(sx.x(t)) << "\" y=\"" << num(y + 16)
            << "\" text-anchor=\"middle\">" << num(t) << "</text>\n";
    svg << "    <text x=\"" << num(kLeft - 8) << "\" y=\"" << num(y + 16)
        << "\" text-anchor=\"end\">seconds</text>\n";
    svg << "  </g>\n</svg>\n";
    return svg.str();
}

bool writeTimeline(const std::string& path, const ReplayResult& result, std::string& error) {
    std::string text = timelineSvg(result);
    FILE* f = fopen(path.c_str(), "wb");
    if (f == NULL) {
        error = path + ": " + strerror(errno);
        return false;
    }
    bool ok = fwrite(text.data(), 1, text.size(), f) == text.size();
    ok = fclose(f) == 0 && ok;
    if (!ok) error = path + ": write error";
    return ok;
}

}  // namespace zelauthor
