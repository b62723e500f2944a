// The command line's parse, shared by `vrok` and `vrok-studio`: help exits 0, a bad argument
// says why and exits 2.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

#include "app/commands.h"

namespace app {

// The exit status to stop with, or nothing when the arguments are good.
inline std::optional<int> ParseArguments(CLI::App& app, int argc, char** argv) {
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        PrintError(std::string(e.what()) + " (see vrok --help)");
        return 2;
    }
    return std::nullopt;
}

}  // namespace app
