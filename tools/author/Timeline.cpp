#include "Timeline.h"

#include <errno.h>
#include <math.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <sstream>

#include "CommandLine.h"

namespace zelauthor {

namespace {

const double kWidth = 1000;
const double kLeft = 230;    // lane labels, then the value scale
const double kScale = 44;    // the value scale's width, left of the lanes
const double kRight = 70;    // room for the threshold's label
const double kHead = 64;     // title and legend
const double kTitle = 22;    // a rule's title
const double kLane = 60;
const double kLaneGap = 10;
const double kStateLane = 16;
const double kRuleGap = 18;
const double kAxis = 44;
const char* const kTypes[3] = {"GT", "LT", "EQ"};

const char* const kSignal = "#2471a3";
const char* const kThreshold = "#c0392b";
const char* const kHolding = "#f5b041";
const char* const kRunning = "#e74c3c";
const char* const kWindowClosed = "#d5d8dc";
const char* const kOutsideArea = "#d7bde2";

std::string num(double v) {
    char buf[32];
    snprintf(buf, sizeof buf, "%.1f", v);
    return buf;
}

// A value on the scale: as few digits as tell the ticks apart.
std::string value(double v, double step) {
    char buf[32];
    if (fabs(v) < step * 1e-6) v = 0;  // no "-0"
    int digits = step >= 1 ? 0 : std::min(6, static_cast<int>(ceil(-log10(step))));
    snprintf(buf, sizeof buf, "%.*f", digits, v);
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

// A tick step of 1, 2 or 5 times a power of ten giving about `ticks` ticks.
double tickStep(double span, double ticks) {
    double raw = std::max(span, 1e-9) / ticks;
    double p = pow(10, floor(log10(raw)));
    for (double m : {1.0, 2.0, 5.0})
        if (raw <= m * p) return m * p;
    return 10 * p;
}

struct Scale {
    double t0, t1, x0, x1;
    double x(double t) const { return x0 + (t - t0) / (t1 - t0) * (x1 - x0); }
};

void rect(std::ostringstream& svg, const char* cls, double x, double y, double w, double h,
          const std::string& fill, const char* extra = "") {
    svg << "    <rect class=\"" << cls << "\" x=\"" << num(x) << "\" y=\"" << num(y)
        << "\" width=\"" << num(std::max(w, 1.0)) << "\" height=\"" << num(h) << "\" fill=\""
        << fill << "\"" << extra << "/>\n";
}

void text(std::ostringstream& svg, double x, double y, const char* anchor, const std::string& t,
          const char* extra = "") {
    svg << "    <text x=\"" << num(x) << "\" y=\"" << num(y) << "\" text-anchor=\"" << anchor
        << "\"" << extra << ">" << escape(t) << "</text>\n";
}

void spans(std::ostringstream& svg, const std::vector<Span>& list, const Scale& sx, double top,
           double height, const char* cls, const std::string& fill) {
    for (const Span& s : list)
        rect(svg, cls, sx.x(s.from), top, sx.x(s.to) - sx.x(s.from), height, fill);
}

void trigger(std::ostringstream& svg, const RuleTrace::Trigger& trig, const Scale& sx, double top) {
    double lo = trig.threshold;
    double hi = trig.threshold;
    bool any = false;
    for (const auto& s : trig.samples)
        if (!std::isnan(s.second)) {
            lo = std::min(lo, s.second);
            hi = std::max(hi, s.second);
            any = true;
        }
    double pad = (hi - lo) * 0.1;
    if (pad == 0) pad = std::max(1.0, fabs(hi) * 0.1);
    lo -= pad;
    hi += pad;
    auto y = [&](double v) { return top + kLane - (v - lo) / (hi - lo) * kLane; };

    rect(svg, "lane", sx.x0, top, sx.x1 - sx.x0, kLane, "none", " stroke=\"#ccc\"");
    // A J1939 lane's name is the table's, "engine_speed (J19391)": the
    // table's name on the first line, the event's on the second.
    std::string name = trig.name;
    std::string event;
    size_t paren = name.rfind(" (");
    if (paren != std::string::npos && name.back() == ')') {
        event = name.substr(paren + 2, name.size() - paren - 3) + " ";
        name.resize(paren);
    }
    if (name.size() > 22) name.replace(21, std::string::npos, "\xE2\x80\xA6");
    text(svg, kLeft - kScale - 6, top + kLane / 2 - 2, "end", name, " font-weight=\"bold\"");
    text(svg, kLeft - kScale - 6, top + kLane / 2 + 13, "end",
         event + kTypes[trig.type % 3] + " " + threshold(trig.threshold) +
             (trig.unit.empty() ? "" : " " + trig.unit));

    // The value scale: ticks at round values, the unit at the top.
    double step = tickStep(hi - lo, 3);
    svg << "    <g class=\"scale\">\n";
    svg << "    <line x1=\"" << num(sx.x0) << "\" y1=\"" << num(top) << "\" x2=\"" << num(sx.x0)
        << "\" y2=\"" << num(top + kLane) << "\" stroke=\"#555\"/>\n";
    // Counted in whole ticks: adding the step over and over would drift.
    const double first = ceil(lo / step) * step;
    for (int k = 0; first + k * step <= hi + 1e-9; ++k) {
        const double v = first + k * step;
        svg << "    <line x1=\"" << num(sx.x0 - 4) << "\" y1=\"" << num(y(v)) << "\" x2=\""
            << num(sx.x0) << "\" y2=\"" << num(y(v)) << "\" stroke=\"#555\"/>\n";
        text(svg, sx.x0 - 6, y(v) + 4, "end", value(v, step), " font-size=\"10\"");
    }
    if (!trig.unit.empty())
        text(svg, sx.x0 - 6, top - 2, "end", trig.unit, " font-size=\"10\" class=\"unit\"");
    svg << "    </g>\n";

    // Where the event has no value, the lane is hatched.
    double from = -1;
    for (size_t i = 0; i < trig.samples.size(); ++i) {
        const auto& s = trig.samples[i];
        if (std::isnan(s.second) && from < 0) from = s.first;
        bool end = i + 1 == trig.samples.size();
        if (from >= 0 && (!std::isnan(s.second) || end)) {
            double to = std::isnan(s.second) ? sx.t1 : s.first;
            rect(svg, "no-reading", sx.x(from), top, sx.x(to) - sx.x(from), kLane,
                 "url(#no-reading)");
            from = -1;
        }
    }
    if (!any) {
        if (trig.samples.empty())
            rect(svg, "no-reading", sx.x0, top, sx.x1 - sx.x0, kLane, "url(#no-reading)");
        text(svg, (sx.x0 + sx.x1) / 2, top + kLane / 2 + 4, "middle", "no reading",
             " class=\"no-reading-label\" fill=\"#555\"");
    }

    double ty = y(trig.threshold);
    svg << "    <line class=\"threshold\" x1=\"" << num(sx.x0) << "\" y1=\"" << num(ty)
        << "\" x2=\"" << num(sx.x1) << "\" y2=\"" << num(ty) << "\" stroke=\"" << kThreshold
        << "\" stroke-dasharray=\"4 3\"/>\n";
    text(svg, sx.x1 + 4, ty + 4, "start",
         std::string(kTypes[trig.type % 3]) + " " + threshold(trig.threshold),
         " class=\"threshold-label\" font-size=\"10\" fill=\"#c0392b\"");

    // The value holds from one sample to the next: a step line, broken
    // where the event has no value.
    std::string points;
    auto flush = [&]() {
        if (!points.empty())
            svg << "    <polyline class=\"signal\" fill=\"none\" stroke=\"" << kSignal
                << "\" stroke-width=\"1.5\" points=\"" << points << "\"/>\n";
        points.clear();
    };
    double last = NAN;
    for (const auto& s : trig.samples) {
        if (!std::isnan(last)) points += num(sx.x(s.first)) + "," + num(y(last)) + " ";
        if (std::isnan(s.second)) flush();
        else points += num(sx.x(s.first)) + "," + num(y(s.second)) + " ";
        last = s.second;
    }
    flush();
}

// One legend entry: a swatch and its meaning.
double legendEntry(std::ostringstream& svg, double x, double y, const std::string& swatch,
                   const char* meaning) {
    svg << swatch;
    text(svg, x + 22, y + 10, "start", meaning);
    return x + 30 + 6.6 * strlen(meaning);
}

void legend(std::ostringstream& svg, double y) {
    svg << "  <g class=\"legend\">\n";
    double x = kLeft;
    auto box = [&](const char* fill, const char* cls) {
        std::ostringstream s;
        rect(s, cls, x, y, 16, 12, fill);
        return s.str();
    };
    auto line = [&](const char* colour, const char* dash) {
        std::ostringstream s;
        s << "    <line x1=\"" << num(x) << "\" y1=\"" << num(y + 6) << "\" x2=\"" << num(x + 16)
          << "\" y2=\"" << num(y + 6) << "\" stroke=\"" << colour << "\" stroke-width=\"1.5\""
          << dash << "/>\n";
        return s.str();
    };
    x = legendEntry(svg, x, y, line(kSignal, ""), "signal");
    x = legendEntry(svg, x, y, line(kThreshold, " stroke-dasharray=\"4 3\""), "threshold");
    x = legendEntry(svg, x, y, box(kHolding, "key"), "holding (ATLEAST not yet reached)");
    x = legendEntry(svg, x, y, box(kRunning, "key"), "running");
    double second = y + 18;
    x = kLeft;
    auto box2 = [&](const char* fill) {
        std::ostringstream s;
        rect(s, "key", x, second, 16, 12, fill);
        return s.str();
    };
    x = legendEntry(svg, x, second, box2(kWindowClosed), "daily window closed");
    x = legendEntry(svg, x, second, box2(kOutsideArea), "outside the rule's area");
    legendEntry(svg, x, second, box2("url(#no-reading)"), "no reading");
    svg << "  </g>\n";
}

}  // namespace

std::string timelineSvg(const ReplayResult& r) {
    Scale sx{0, std::max(r.duration, 1.0), kLeft, kWidth - kRight};
    double height = kHead;
    for (const RuleTrace& rule : r.rules)
        height += kTitle + rule.triggers.size() * (kLane + kLaneGap) + kStateLane + kRuleGap;
    height += kAxis;

    std::ostringstream svg;
    svg << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << num(kWidth) << "\" height=\""
        << num(height) << "\" viewBox=\"0 0 " << num(kWidth) << " " << num(height)
        << "\" font-family=\"sans-serif\" font-size=\"12\">\n";
    std::string title = "Alert timeline: " + std::to_string(r.rules.size()) + " rule" +
                        (r.rules.size() == 1 ? "" : "s") + ", " + num(r.duration) +
                        " s of device time from " + r.clockAtZero;
    svg << "  <title>" << escape(title) << "</title>\n";
    svg << "  <defs><pattern id=\"no-reading\" width=\"6\" height=\"6\" "
           "patternUnits=\"userSpaceOnUse\" patternTransform=\"rotate(45)\">"
           "<rect width=\"6\" height=\"6\" fill=\"#eee\"/>"
           "<line x1=\"0\" y1=\"0\" x2=\"0\" y2=\"6\" stroke=\"#aaa\" stroke-width=\"2\"/>"
           "</pattern></defs>\n";
    svg << "  <rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
    svg << "  <text class=\"title\" x=\"8\" y=\"18\" font-size=\"15\" font-weight=\"bold\">"
        << escape(title) << "</text>\n";
    legend(svg, 28);
    double y = kHead;
    for (size_t i = 0; i < r.rules.size(); ++i) {
        const RuleTrace& rule = r.rules[i];
        svg << "  <g class=\"rule\" id=\"rule-" << i << "\" data-alert=\"" << rule.id << "\">\n";
        text(svg, 8, y + 15, "start", "alert " + std::to_string(rule.id),
             " font-weight=\"bold\"");
        if (!rule.window.empty())
            text(svg, sx.x1, y + 15, "end", "daily window " + rule.window);
        y += kTitle;
        double top = y;
        double bottom = y + rule.triggers.size() * (kLane + kLaneGap) + kStateLane;
        // Closed window and outside area under everything of the rule.
        spans(svg, rule.windowClosed, sx, top, bottom - top, "window-closed", kWindowClosed);
        spans(svg, rule.outsideArea, sx, top, bottom - top, "outside-area", kOutsideArea);
        for (const RuleTrace::Trigger& trig : rule.triggers) {
            trigger(svg, trig, sx, y);
            y += kLane + kLaneGap;
        }
        text(svg, kLeft - kScale - 6, y + 12, "end", "holding / running");
        rect(svg, "state", sx.x0, y, sx.x1 - sx.x0, kStateLane, "none", " stroke=\"#ddd\"");
        spans(svg, rule.holding, sx, y, kStateLane, "holding", kHolding);
        spans(svg, rule.running, sx, y, kStateLane, "running", kRunning);
        y += kStateLane + kRuleGap;
        svg << "  </g>\n";
    }
    svg << "  <g class=\"axis\">\n";
    svg << "    <line x1=\"" << num(sx.x0) << "\" y1=\"" << num(y) << "\" x2=\"" << num(sx.x1)
        << "\" y2=\"" << num(y) << "\" stroke=\"#333\"/>\n";
    double step = tickStep(sx.t1 - sx.t0, 10);
    for (int k = 0; k * step <= sx.t1 + 1e-9; ++k) {
        const double t = k * step;
        svg << "    <line x1=\"" << num(sx.x(t)) << "\" y1=\"" << num(y) << "\" x2=\""
            << num(sx.x(t)) << "\" y2=\"" << num(y + 4) << "\" stroke=\"#333\"/>\n";
        text(svg, sx.x(t), y + 16, "middle", value(t, step));
    }
    text(svg, (sx.x0 + sx.x1) / 2, y + 36, "middle", "seconds from the start (device time)",
         " class=\"axis-title\"");
    svg << "  </g>\n</svg>\n";
    return svg.str();
}

bool writeTimeline(const std::string& path, const ReplayResult& result, std::string& error) {
    std::string text = timelineSvg(result);
    FILE* f = fopen(path.c_str(), "wb");
    if (f == nullptr) {
        error = path + ": " + cli::errorText(errno);
        return false;
    }
    bool ok = fwrite(text.data(), 1, text.size(), f) == text.size();
    ok = fclose(f) == 0 && ok;
    if (!ok) error = path + ": write error";
    return ok;
}

}  // namespace zelauthor
