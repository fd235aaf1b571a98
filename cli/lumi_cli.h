// The lumi command: a host of liblumi.so like any other.  It loads the
// library with dlopen, resolves GetProcAddressForSo, and looks every
// primitive up by name; it uses lumi.h for types and status codes only.
//
// What runs is driven by two tables: the operation table (ops.cpp), one row
// per primitive the command can call, and the demo table (demo.cpp), one row
// per picture the demo writes.  A new primitive is one row in each.
#ifndef LUMI_CLI_H
#define LUMI_CLI_H

#include <stdint.h>
#include <stdio.h>

#include <string>
#include <vector>

#include "lumi.h"

namespace cli {

// ------------------------------------------------------------------ images --

// An 8-bit image of 1 or 3 interleaved channels, rows packed.
struct Image {
    int width = 0;
    int height = 0;
    int channels = 0;
    std::vector<uint8_t> pixels;

    int step() const { return width * channels; }
    uint8_t *at(int x, int y) { return pixels.data() + (size_t)y * step() + (size_t)x * channels; }
    const uint8_t *at(int x, int y) const
    {
        return pixels.data() + (size_t)y * step() + (size_t)x * channels;
    }
};

// Largest image the command makes, in bytes: bigger results are refused.
constexpr size_t kMaxImageBytes = (size_t)1 << 30;

bool make_image(Image *img, int width, int height, int channels, std::string *err);
// Channels stored in the file (1 or 3; grey with alpha counts 1, RGBA 3), or 0.
int file_channels(const std::string &path);
// Reads PNG, JPEG, BMP, PPM/PGM (and what else the decoder knows), converted
// to the channel count asked for (1 or 3).
bool load_image(const std::string &path, int channels, Image *img, std::string *err);
// Writes by the extension: .png, .jpg/.jpeg, .ppm (RGB), .pgm (grey).  The
// file is written whole or not at all.
bool save_image(const std::string &path, const Image &img, std::string *err);
bool supported_output(const std::string &path);
// Grey to RGB by repeating, RGB to grey by the usual luma weights.
Image with_channels(const Image &img, int channels);

// Text in a 5 by 7 pixel font, each font pixel drawn as scale by scale.
void draw_text(Image *img, int x, int y, const std::string &text, int scale, const uint8_t rgb[3]);
int text_width(const std::string &text, int scale);
constexpr int kGlyphW = 6; // advance, one column of space included
constexpr int kGlyphH = 8; // line height, one row of space included

// ----------------------------------------------------------------- library --

typedef decltype(&GetProcAddressForSo) GetProcFn;

struct Library {
    void *handle = nullptr;
    std::string path; // the file the loader opened
    GetProcFn get_proc = nullptr;
    decltype(&lumInitCpu) init_cpu = nullptr;
    decltype(&lumGetCpuFeatures) get_cpu_features = nullptr;
    decltype(&lumiGetLibVersion) version = nullptr;
    int32_t *jump_index = nullptr;
};

// Opens the library: the path given (--lib), else $LUMI_LIBRARY, each alone and
// an error when it does not load; else the one beside the program (build tree
// or installed prefix), else the SONAME on the loader's path.
bool open_library(const std::string &path, Library *lib, std::string *err);
// The running command's own file, for telling a user where it is.
std::string program_path();

// One row of the library's entry table: its name and, for a dispatched
// primitive, the tier behind each dispatch index 0..5 (else null).
struct EntryRow {
    const char *name;
    const char *slots[LUMI_DISPATCH_INDEX_COUNT];
};
const std::vector<EntryRow> &entry_rows();
const EntryRow *find_entry(const std::string &name);

// The named primitive from the library, typed from the public header:
// LUMI_CLI_PROC(lib, lumiFilterMedian_8u_C1R) has lumiFilterMedian_8u_C1R's
// type, or is null when the library does not serve the name.
template <typename Fn>
Fn typed_proc(const Library &lib, const char *name)
{
    return reinterpret_cast<Fn>(lib.get_proc(name));
}
#define LUMI_CLI_PROC(lib, name) cli::typed_proc<decltype(&name)>(lib, #name)

const char *status_name(LumStatus status);
// "-33 (lumStsMaskSizeErr)"
std::string status_text(LumStatus status);

// The tier at dispatch index 1..5 of every primitive: m7, n8/u8, n8/u8, y8, e9.
bool is_tier_name(const std::string &tier);
// Dispatch index through which `tier` serves the row, or -1.
int tier_index(const EntryRow &row, const std::string &tier);
// Forces dispatch index 1..5 through lumInitCpu, after checking that the
// processor runs it.  Any later lookup puts the automatic choice back.
bool force_index(const Library &lib, int index, std::string *err);
// The tier the library runs at now ("y8"), from its version record.
std::string current_tier(const Library &lib);
// The tier that serves the named primitive at the dispatch index in force.
std::string serving_tier(const Library &lib, const std::string &name);

// -------------------------------------------------------------- operations --

// Image layouts an operation reads or writes.  Planes are three planes of
// one channel each, stored one under the other in a one-channel image three
// times as tall as the picture.
enum Layout { kInterleaved, kPlanes };

// Option bits: which parameters an operation takes.
enum {
    kOptMask = 1 << 0,   // --mask WxH
    kOptAnchor = 1 << 1, // --anchor X,Y
    kOptScale = 1 << 2,  // --scale F, --fx F, --fy F, --size WxH
    kOptMethod = 1 << 3, // --method nn|linear|cubic|lanczos|super|CODE
    kOptKernel = 1 << 4, // --kernel "a,b,c;d,e,f;..." or a preset name
    kOptDivisor = 1 << 5, // --divisor N
    kOptBilateral = 1 << 6, // --sigma-value V, --sigma-position P, --step S
    kOptMap = 1 << 7,     // --rotate DEG | --barrel K | --wave PIXELS, --edge soft|hard
    kOptAngle = 1 << 8,   // --angle A, --soft-edge
    kOptCentre = 1 << 9,  // --centre X,Y
    kOptShift = 1 << 10,  // --shift X,Y
};

// The built-in coordinate maps of remap.
enum MapKind { kMapRotate, kMapBarrel, kMapWave };

struct Params {
    LumiSize mask = {3, 3};
    LumiPoint anchor = {0, 0};
    bool anchor_given = false;
    double fx = 1.0, fy = 1.0;
    LumiSize size = {0, 0}; // --size: output size instead of factors
    int method = LUMI_INTER_LINEAR;
    std::vector<double> kernel; // row-major, mask.width * mask.height cells; empty: sharpen
    int divisor = 1;
    bool divisor_given = false;
    float sigma_value = 900.0f;  // the bilateral filter's valueSigma2
    float sigma_position = 9.0f; // and positionSigma2
    int step = 1;                // and stepInKernel
    LumiRect roi = {0, 0, 0, 0};
    bool roi_given = false;
    MapKind map = kMapRotate; // remap's built-in map and its one parameter
    double map_amount = 12.0;
    bool soft_edge = false;
    double angle = 0.0;             // --angle, degrees
    double centre[2] = {0.0, 0.0};  // --centre; the region's centre when not given
    bool centre_given = false;
    double shift[2] = {0.0, 0.0};   // --shift
};

struct Op;

// One call of an operation: input, parameters, result.
struct Job {
    void *fn = nullptr; // the address GetProcAddressForSo gave
    void *helpers[2] = {nullptr, nullptr}; // the addresses of the op's helpers
    const Image *in = nullptr;
    Params p; // roi filled in (whole picture when not given)
    Image out;
    double seconds = 0; // time of the library call alone
    std::string error;  // a host-side failure, when the status is not from the library
};

struct Op {
    const char *name;  // entry-table name
    const char *alias; // short command; one alias may name a 1- and a 3-channel form
    int channels;      // channels of the input picture
    Layout in, out;
    unsigned options; // kOpt bits
    // Sizes the result, prepares the buffers, times the call, fills job.out.
    // Returns the library's status, or 1 with job.error set for a host failure.
    LumStatus (*run)(const Op &op, Job &job);
    const char *summary;
    // Primitives the call needs besides its own (a size query, a set-up),
    // looked up with it into job.helpers; null when there are none.
    const char *helpers[2];
};

const std::vector<Op> &ops();
const Op *find_op(const std::string &name);
// The row of an alias for a picture of `channels` (the 3-channel form when
// there is no other).
const Op *find_alias(const std::string &alias, int channels);
bool is_alias(const std::string &alias);

// Parses the operation's own options from args, leaving IN and OUT and the
// common run options (--roi, --tier, --time) to the caller.
bool parse_option(const Op &op, const std::string &key, const std::string &value, Params *p,
                  std::string *err);
bool option_takes_value(const std::string &key);
std::string options_help(unsigned options);

// Checks the region against the picture (or fills it with the whole picture).
bool settle_roi(const Op &op, const Image &in, Params *p, std::string *err);

// Reads the picture an operation wants from a file: its layout and channels.
bool load_input(const Op &op, const std::string &path, Image *img, std::string *err);
// The picture of op's input layout made from an interleaved RGB picture.
Image input_from_rgb(const Op &op, const Image &rgb);

// -------------------------------------------------------------- commands --

// What `lumi run NAME ...` was given besides the name.
struct RunArgs {
    Params p;
    std::string tier; // empty: the automatic choice
    bool time = false;
    bool help = false;
    std::vector<std::string> files;
};
bool parse_run_args(const Op &op, const std::vector<std::string> &args, RunArgs *out,
                    std::string *err);
// Runs op on a picture already in memory: looks it up, forces the tier if
// asked, checks the region and calls it.  Returns the status (or 1 with
// job->error set for a failure of the host).
LumStatus run_op(const Library &lib, const Op &op, const Image &in, const RunArgs &args, Job *job);
std::string failure_text(const Op &op, LumStatus status, const Job &job);

// Prints "lumi: MSG" as one line on stderr and returns code.
int fail(const std::string &msg, int code = 1);
void print_usage(FILE *to, bool with_aliases);
int cmd_list(const Library &lib);
// "lumi 7.0.205.1100", then the library loaded and the version it reports.
int cmd_version(const std::string &lib_path);
int cmd_run(const std::string &name, const std::vector<std::string> &args,
            const std::string &lib_path);
int cmd_demo(const std::vector<std::string> &args, const std::string &lib_path);

// The built-in picture of the demo.
Image demo_picture(int width, int height);

} // namespace cli

#endif
