// lumi: try any primitive of liblumi.so on a picture in one line.
#include <stdio.h>

#include "lumi_cli.h"

int main(int argc, char **argv)
{
    using namespace cli;
    std::vector<std::string> args(argv + 1, argv + argc);
    std::string lib_path;
    if (args.size() >= 1 && args[0].compare(0, 6, "--lib=") == 0) {
        lib_path = args[0].substr(6);
        args.erase(args.begin());
    } else if (args.size() >= 2 && args[0] == "--lib") {
        lib_path = args[1];
        args.erase(args.begin(), args.begin() + 2);
    }
    if (args.empty() || args[0] == "--help" || args[0] == "-h" || args[0] == "help") {
        print_usage(args.empty() ? stderr : stdout, !args.empty());
        return args.empty() ? 2 : 0;
    }
    const std::string cmd = args[0];
    if (cmd == "--version" || cmd == "version")
        return cmd_version(lib_path);
    std::vector<std::string> rest(args.begin() + 1, args.end());
    if (cmd == "list") {
        if (!rest.empty())
            return fail("list takes no arguments", 2);
        Library lib;
        std::string err;
        if (!open_library(lib_path, &lib, &err))
            return fail(err);
        return cmd_list(lib);
    }
    if (cmd == "demo")
        return cmd_demo(rest, lib_path);
    if (cmd == "run") {
        if (rest.empty())
            return fail("lumi run wants a primitive's name (lumi list shows them)", 2);
        std::string name = rest[0];
        rest.erase(rest.begin());
        return cmd_run(name, rest, lib_path);
    }
    return cmd_run(cmd, rest, lib_path);
}
