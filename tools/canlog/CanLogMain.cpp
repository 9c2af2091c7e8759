// zel-canlog: writes a made-up J1939 drive as a candump log, for runs and
// tests on a machine without recorded traces. The drive is the same on every
// run: engine speed (EEC1, every 50 ms), wheel-based vehicle speed (CCVS1,
// every 100 ms), oil pressure (EFL/P1, every 500 ms), coolant temperature
// (ET1, every second) and battery potential (VEP1, every second), all from
// source address 0. Speed climbs to 90 km/h and eases off; coolant rises
// from 90 to 96 degC and back; oil pressure holds 300 kPa but dips to
// 220 kPa from 35 % to 52 % of the drive.
//
// Usage: zel-canlog [--seconds N] [--ta] OUT.log
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <cmath>
#include <string>

#include "CommandLine.h"

namespace {

const double kStart = 1700000000.0;  // -l time of the first frame
const double kPi = 3.14159265358979323846;

const char kProgram[] = "zel-canlog";
const char kUsage[] =
            "usage: zel-canlog [--seconds N] [--ta] OUT.log\n"
            "  Writes a made-up J1939 drive of N seconds (default 30, 1..3600) as a\n"
            "  candump log: the -l form (time) can0 ID#DATA, or with --ta the -ta form.\n"
            "  Engine speed, vehicle speed, oil pressure (below 240 kPa from 35 % to\n"
            "  52 % of the drive), coolant temperature and battery potential, as\n"
            "  examples/j1939/signals.csv reads them.\n"
            "examples:\n"
            "  zel-canlog /tmp/drive.log\n"
            "  zel-canlog --seconds 10 --ta /tmp/short.log\n";

struct Frame {
    unsigned id;
    unsigned char data[8];
};

// J1939 leaves what a message does not carry at all ones.
Frame blank(unsigned id) {
    Frame f;
    f.id = id;
    memset(f.data, 0xff, sizeof f.data);
    return f;
}

void put16(Frame& f, int byte, double raw) {
    unsigned v = static_cast<unsigned>(std::lround(raw));
    f.data[byte] = static_cast<unsigned char>(v & 0xff);
    f.data[byte + 1] = static_cast<unsigned char>(v >> 8);
}

void write(FILE* out, bool ta, double t, const Frame& f) {
    if (ta) {
        fprintf(out, " (%010.6f)  can0  %08X   [8] ", t, f.id);
        for (unsigned char b : f.data) fprintf(out, " %02X", b);
    } else {
        fprintf(out, "(%.6f) can0 %08X#", kStart + t, f.id);
        for (unsigned char b : f.data) fprintf(out, "%02X", b);
    }
    fputc('\n', out);
}

// Share of the drive done, 0..1, and a hump that is 0 at both ends, 1 midway.
double hump(double share) { return std::sin(kPi * share); }

}  // namespace

int main(int argc, char** argv) {
    long seconds = 30;
    bool ta = false;
    const char* path = nullptr;
    int status = 0;
    if (cli::answersAsk(argc, argv, kProgram, kUsage, status)) return status;
    for (int i = 1; i < argc; ++i) {
        if (!strcmp(argv[i], "--ta")) {
            ta = true;
        } else if (!strcmp(argv[i], "--seconds")) {
            if (i + 1 == argc) return cli::usageError(kProgram, "--seconds needs a value");
            char* end = nullptr;
            seconds = strtol(argv[++i], &end, 10);
            if (*end != '\0' || seconds < 1 || seconds > 3600)
                return cli::usageError(kProgram,
                                       std::string("--seconds: '") + argv[i] + "' is not 1..3600");
        } else if (argv[i][0] == '-') {
            return cli::usageError(kProgram, std::string("unknown option ") + argv[i]);
        } else if (path == nullptr) {
            path = argv[i];
        } else {
            return cli::usageError(kProgram, "one OUT.log only");
        }
    }
    if (path == nullptr) return cli::usageError(kProgram, "no OUT.log");
    FILE* out = fopen(path, "w");
    if (out == nullptr)
        return cli::fail(kProgram,
                         std::string("cannot write ") + path + ": " + cli::errorText(errno));
    // Every 10 ms step sends what is due then, in a fixed order.
    const long steps = seconds * 100;
    for (long k = 0; k < steps; ++k) {
        const double t = k / 100.0;
        const double share = t / seconds;
        if (k % 5 == 0) {  // EEC1: engine speed, 0.125 rpm per bit, bytes 3-4
            Frame f = blank(0x0CF00400);
            put16(f, 3, (800 + 1000 * hump(share) + 40 * std::sin(t * 3)) / 0.125);
            write(out, ta, t, f);
        }
        if (k % 10 == 0) {  // CCVS1: wheel-based speed, 1/256 km/h per bit, bytes 1-2
            Frame f = blank(0x18FEF100);
            put16(f, 1, 90 * hump(share) * 256);
            write(out, ta, t, f);
        }
        if (k % 50 == 0) {  // EFL/P1: oil pressure, 4 kPa per bit, byte 3
            Frame f = blank(0x18FEEF00);
            f.data[3] = share >= 0.35 && share < 0.52 ? 220 / 4 : 300 / 4;
            write(out, ta, t + 0.001, f);
        }
        if (k % 100 == 0) {  // ET1: coolant, 1 degC per bit from -40, byte 0
            Frame f = blank(0x18FEEE00);
            f.data[0] = static_cast<unsigned char>(std::lround(90 + 6 * hump(share) + 40));
            write(out, ta, t + 0.002, f);
            Frame v = blank(0x18FEF700);  // VEP1: battery, 0.05 V per bit, bytes 4-5
            put16(v, 4, (13.9 + 0.2 * hump(share)) / 0.05);
            write(out, ta, t + 0.004, v);
        }
    }
    if (fclose(out) != 0)
        return cli::fail(kProgram,
                         std::string("cannot write ") + path + ": " + cli::errorText(errno));
    return 0;
}
