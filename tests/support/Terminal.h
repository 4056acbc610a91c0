// Runs programs on a pseudo-terminal and shows what their users see.
#pragma once

#include "support/Program.h"

#include <cstdlib>
#include <sys/ioctl.h>

namespace Quillmoran::Testing {

struct TerminalRun
{
    int status; // exit status, or minus the signal that ended the program
    std::string bytes;
    std::string screen; // at the end, without blanks at the ends of lines
};

// Lines after carriage returns, line feeds and "erase to the end of the line", the only controls that may occur.
inline std::string screenOf(const std::string& bytes)
{
    Strings lines(1);
    std::size_t column = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        std::string& line = lines.back();
        if (bytes[i] == '\r') {
            column = 0;
        } else if (bytes[i] == '\n') {
            lines.emplace_back();
        } else if (bytes.compare(i, 3, "\033[K") == 0) {
            line.resize(std::min(column, line.size()));
            i += 2;
        } else {
            EXPECT_GE(static_cast<unsigned char>(bytes[i]), ' ') << "another control";
            line.resize(std::max(line.size(), column + 1), ' ');
            line[column++] = bytes[i];
        }
    }
    std::string screen;
    for (const std::string& line : lines)
        screen += line.substr(0, line.find_last_not_of(' ') + 1) + '\n';
    screen.pop_back();
    return screen;
}

// Standard input, output and error are one terminal, as wide as `columns`.
inline TerminalRun runOnTerminal(const std::string& shellCommand, const TemporaryDirectory& directory,
                                 unsigned short columns = 100)
{
    const int master = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (master < 0 || ::grantpt(master) != 0 || ::unlockpt(master) != 0) {
        ADD_FAILURE() << "no pseudo-terminal";
        return {-1, "", ""};
    }
    struct winsize size = {};
    size.ws_row = 24;
    size.ws_col = columns;
    ::ioctl(master, TIOCSWINSZ, &size);
    const std::string terminal = ::ptsname(master);

    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addchdir_np(&actions, directory.path().c_str());
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        posix_spawn_file_actions_addopen(&actions, stream, terminal.c_str(), O_RDWR, 0);
    std::string script = "PATH=" PROGRAMS ":$PATH; " + shellCommand;
    char shell[] = "/bin/sh", option[] = "-c";
    char* const argv[] = {shell, option, script.data(), nullptr};
    pid_t process = 0;
    EXPECT_EQ(posix_spawn(&process, shell, &actions, &attributes, argv, environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);

    TerminalRun run = {};
    if (process > 0) {
        char block[4096];
        // Reading fails with EIO when all processes have closed the terminal.
        for (ssize_t length = 0; (length = ::read(master, block, sizeof block)) > 0;)
            run.bytes.append(block, static_cast<std::size_t>(length));
        int status = 0;
        waitpid(process, &status, 0);
        run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    ::close(master);
    run.screen = screenOf(run.bytes);
    return run;
}

} // namespace Quillmoran::Testing
