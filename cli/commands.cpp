// The commands of lumi: list, run (by name or alias) and their help.
#include <stdio.h>
#include <string.h>

#include "lumi_cli.h"

namespace cli {

namespace {

const char kUsage[] =
    "usage: lumi [--lib PATH] COMMAND ...\n"
    "\n"
    "  lumi list                        every primitive of the library, live or not, and the tier\n"
    "  lumi run NAME [options] IN OUT   run one primitive on a picture\n"
    "  lumi ALIAS [options] IN OUT      the same by a short name (see below)\n"
    "  lumi demo [--out DIR]            run every live primitive on a built-in picture and\n"
    "                                   write PNGs, a contact sheet and index.html\n"
    "                                   (in demo-out unless --out says otherwise)\n"
    "  lumi run NAME --help             the options of one primitive\n"
    "  lumi --version                   the version of the command and of the library\n"
    "\n"
    "Options of every run:\n"
    "  --roi X,Y,W,H    process this region only\n"
    "  --tier T         force the tier m7, n8, u8, y8 or e9; n8 and u8 are two SSSE3 builds\n"
    "                   and each primitive has one or both of them (lumi run NAME --help\n"
    "                   lists a primitive's tiers by dispatch index)\n"
    "  --time           print the time of the library call\n"
    "\n"
    "Pictures: PNG, JPEG, BMP, PPM/PGM in; .png, .jpg, .ppm, .pgm out.  An alias picks the grey\n"
    "or the RGB form by the input file; a named primitive converts the input to its channels.\n"
    "--lib PATH (or $LUMI_LIBRARY) names the library to load; without either, lumi loads the\n"
    "library beside it (build tree or installed prefix), else " LUMI_SO_NAME " on the loader's path.\n";

} // namespace

int fail(const std::string &msg, int code)
{
    fprintf(stderr, "lumi: %s\n", msg.c_str());
    return code;
}

namespace {

void print_aliases()
{
    printf("\nAliases:\n");
    std::string done;
    for (const Op &op : ops()) {
        if (done.find(std::string(" ") + op.alias + " ") != std::string::npos)
            continue;
        done += std::string(" ") + op.alias + " ";
        std::string names;
        for (const Op &o : ops())
            if (!strcmp(o.alias, op.alias))
                names += std::string(names.empty() ? "" : ", ") + o.name;
        printf("  %-16s %s\n", op.alias, names.c_str());
    }
}

void print_op_help(const std::string &name)
{
    for (const Op &op : ops()) {
        if (name != op.name && name != op.alias)
            continue;
        printf("%s (lumi %s): %s\n", op.name, op.alias, op.summary);
        printf("  input: %s; result: %s\n",
               op.in == kPlanes ? "three planes stacked in one grey picture"
                                : (op.channels == 1 ? "grey" : "RGB"),
               op.out == kPlanes ? "three planes stacked in one grey picture"
                                 : (op.channels == 1 ? "grey" : "RGB"));
    }
    const Op *op = is_alias(name) ? find_alias(name, 3) : find_op(name);
    printf("usage: lumi %s %s[--roi X,Y,W,H] [--tier T] [--time] IN OUT\n",
           is_alias(name) ? name.c_str() : ("run " + name).c_str(),
           op->options ? "[options] " : "");
    printf("%s", options_help(op->options).c_str());
    // The tier behind each dispatch index: which processors share a member.
    if (const EntryRow *row = find_entry(op->name)) {
        printf("  --tier T         one of this primitive's tiers, by dispatch index:\n");
#define LUMI_CLI_TIER_LINE(index, code, features, label) \
    printf("                     %d  %-3s %s\n", index, row->slots[index], label);
        LUMI_DISPATCH_INDEX_LIST(LUMI_CLI_TIER_LINE)
#undef LUMI_CLI_TIER_LINE
    }
}

} // namespace

void print_usage(FILE *to, bool with_aliases)
{
    fputs(kUsage, to);
    if (with_aliases)
        print_aliases();
}

bool parse_run_args(const Op &op, const std::vector<std::string> &args, RunArgs *out,
                    std::string *err)
{
    for (size_t i = 0; i < args.size(); ++i) {
        std::string key = args[i], value;
        if (key.size() < 2 || key.compare(0, 2, "--") != 0 || key == "--") {
            out->files.push_back(key);
            continue;
        }
        size_t eq = key.find('=');
        if (eq != std::string::npos) {
            value = key.substr(eq + 1);
            key = key.substr(0, eq);
        } else if (option_takes_value(key)) {
            if (i + 1 >= args.size()) {
                *err = key + " wants a value";
                return false;
            }
            value = args[++i];
        }
        if (key == "--help") {
            out->help = true;
        } else if (key == "--time") {
            out->time = true;
        } else if (key == "--tier") {
            if (!is_tier_name(value)) {
                *err = "--tier wants m7, n8, u8, y8 or e9, not '" + value + "'";
                return false;
            }
            out->tier = value;
        } else if (key == "--roi") {
            int v[4];
            char tail;
            if (sscanf(value.c_str(), "%d,%d,%d,%d%c", &v[0], &v[1], &v[2], &v[3], &tail) != 4) {
                *err = "--roi wants X,Y,W,H, not '" + value + "'";
                return false;
            }
            out->p.roi = {v[0], v[1], v[2], v[3]};
            out->p.roi_given = true;
        } else if (!parse_option(op, key, value, &out->p, err)) {
            return false;
        }
    }
    return true;
}

LumStatus run_op(const Library &lib, const Op &op, const Image &in, const RunArgs &args, Job *job)
{
    job->in = &in;
    job->p = args.p;
    if (!settle_roi(op, in, &job->p, &job->error))
        return 1;
    job->fn = lib.get_proc(op.name);
    if (!job->fn) {
        job->error = std::string(op.name) + " is not live in this library";
        return 1;
    }
    for (int i = 0; i < 2 && op.helpers[i]; ++i)
        if (!(job->helpers[i] = lib.get_proc(op.helpers[i]))) {
            job->error = std::string(op.helpers[i]) + " is not live in this library";
            return 1;
        }
    if (!args.tier.empty()) {
        const EntryRow *row = find_entry(op.name);
        int index = row ? tier_index(*row, args.tier) : -1;
        if (index < 0) {
            std::string has;
            for (int i = 1; row && i < LUMI_DISPATCH_INDEX_COUNT && row->slots[i]; ++i)
                if (has.find(row->slots[i]) == std::string::npos)
                    has += std::string(has.empty() ? "" : " ") + row->slots[i];
            job->error =
                std::string(op.name) + " has no " + args.tier + " tier (it has " + has + ")";
            return 1;
        }
        // After the lookup: every lookup puts the automatic choice back.
        if (!force_index(lib, index, &job->error))
            return 1;
    }
    return op.run(op, *job);
}

std::string failure_text(const Op &op, LumStatus status, const Job &job)
{
    if (!job.error.empty())
        return job.error;
    return std::string(op.name) + " returned " + status_text(status);
}

int cmd_list(const Library &lib)
{
    std::vector<bool> live;
    for (const EntryRow &row : entry_rows())
        live.push_back(lib.get_proc(row.name) != nullptr);
    int index = lib.jump_index ? *lib.jump_index : -1;
    const LumLibraryVersion *v = lib.version ? lib.version() : nullptr;
    printf("%s %s, tier %s (dispatch index %d)\n", v ? v->Name : "liblumi", v ? v->Version : "",
           current_tier(lib).c_str(), index);
    printf("library: %s\n", lib.path.c_str());
    printf("%-38s %-9s %-5s %s\n", "PRIMITIVE", "STATE", "TIER", "COMMAND");
    for (size_t i = 0; i < entry_rows().size(); ++i) {
        const EntryRow &row = entry_rows()[i];
        const Op *op = find_op(row.name);
        const bool dispatched = row.slots[0] && index >= 0 && index < LUMI_DISPATCH_INDEX_COUNT;
        const char *tier = dispatched ? row.slots[index] : "-";
        printf("%-38s %-9s %-5s %s\n", row.name, live[i] ? "live" : "not live", tier,
               op ? op->alias : "");
    }
    return 0;
}

int cmd_version(const std::string &lib_path)
{
    printf("lumi %s\n", LUMI_VERSION);
    Library lib;
    std::string err;
    if (!open_library(lib_path, &lib, &err))
        return fail(err);
    const LumLibraryVersion *v = lib.version ? lib.version() : nullptr;
    if (!v)
        return fail(lib.path + " does not serve lumiGetLibVersion");
    printf("library %d.%d.%d.%d (%s) from %s\n", v->major, v->minor, v->majorBuild, v->build,
           v->Version, lib.path.c_str());
    return 0;
}

int cmd_run(const std::string &name, const std::vector<std::string> &args,
            const std::string &lib_path)
{
    bool alias = is_alias(name);
    const Op *op = alias ? find_alias(name, 3) : find_op(name);
    if (!op) {
        if (find_entry(name))
            return fail(name + " is in the library's table but this command cannot run it yet", 2);
        return fail("no primitive or command named '" + name + "' (try lumi --help)", 2);
    }
    RunArgs ra;
    std::string err;
    if (!parse_run_args(*op, args, &ra, &err))
        return fail(err, 2);
    if (ra.help) {
        print_op_help(name);
        return 0;
    }
    if (ra.files.size() != 2)
        return fail("lumi " + std::string(alias ? "" : "run ") + name + " wants IN and OUT files",
                    2);
    const std::string &in_path = ra.files[0], &out_path = ra.files[1];
    if (!supported_output(out_path))
        return fail("cannot write " + out_path + ": the name must end in .png, .jpg, .ppm or .pgm",
                    2);
    if (alias)
        op = find_alias(name, file_channels(in_path) == 1 ? 1 : 3);

    Image in;
    if (!load_input(*op, in_path, &in, &err))
        return fail(err);
    Library lib;
    if (!open_library(lib_path, &lib, &err))
        return fail(err);
    Job job;
    LumStatus st = run_op(lib, *op, in, ra, &job);
    std::string tier = serving_tier(lib, op->name);
    if (st != lumStsNoErr)
        return fail(failure_text(*op, st, job));
    if (!save_image(out_path, job.out, &err))
        return fail(err);
    if (ra.time)
        printf("%s: %.3f ms on tier %s\n", op->name, job.seconds * 1e3, tier.c_str());
    return 0;
}

} // namespace cli
