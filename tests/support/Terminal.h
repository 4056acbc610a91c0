// Runs programs on a pseudo-terminal and shows what their users see.
#pragma once

#include "support/Program.h"

#include <cstdlib>
#include <sys/ioctl.h>
#include <sys/mount.h>

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

// A new pseudo-terminal: the side of its user. In a root directory without /dev/pts, as of a plain chroot, root mounts
// one for a moment.
inline int openTerminal()
{
    int master = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (master < 0) {
        const TemporaryDirectory terminals;
        const char* const path = terminals.path().c_str();
        if (::mount("devpts", path, "devpts", MS_NOSUID | MS_NOEXEC, "newinstance,ptmxmode=0600") == 0) {
            master = ::open((terminals / "ptmx").c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
            ::umount2(path, MNT_DETACH);
        }
    }
    const int unlocked = 0;
    if (master >= 0)
        ::ioctl(master, TIOCSPTLCK, &unlocked);
    return master;
}

// A command of the shell whose standard input, output and error are one terminal.
class TerminalProgram
{
public:
    TerminalProgram(const std::string& command, const TemporaryDirectory& directory,
                    unsigned short columns = 100)
        : m_master(openTerminal())
    {
        const int terminal = ::ioctl(m_master, TIOCGPTPEER, O_RDWR | O_NOCTTY | O_CLOEXEC);
        if (terminal < 0) {
            ADD_FAILURE() << "no pseudo-terminal";
            return;
        }
        struct winsize size = {};
        size.ws_row = 24;
        size.ws_col = columns;
        ::ioctl(m_master, TIOCSWINSZ, &size);

        posix_spawnattr_t attributes;
        posix_spawnattr_init(&attributes);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addchdir_np(&actions, directory.path().c_str());
        for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
            posix_spawn_file_actions_adddup2(&actions, terminal, stream);
        std::string script = "PATH=" PROGRAMS ":$PATH; " + command;
        char shell[] = "/bin/sh", option[] = "-c";
        char* const argv[] = {shell, option, script.data(), nullptr};
        EXPECT_EQ(posix_spawn(&m_process, shell, &actions, &attributes, argv, environ), 0);
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
        ::close(terminal);
    }
    ~TerminalProgram() { ::close(m_master); }
    TerminalProgram(const TerminalProgram&) = delete;
    TerminalProgram& operator=(const TerminalProgram&) = delete;

    // Sends a signal as soon as the program has shown a text. The command is one program, begun with "exec".
    void interrupt(const std::string& text, int number)
    {
        while (m_bytes.find(text) == std::string::npos && readSome()) {
        }
        if (m_process > 0) // never signals a group of processes
            ::kill(m_process, number);
    }

    TerminalRun wait()
    {
        if (m_process <= 0)
            return {-1, "", ""};
        while (readSome()) {
        }
        int status = 0;
        waitpid(m_process, &status, 0);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), m_bytes, screenOf(m_bytes)};
    }

private:
    // Fails when all processes have closed the terminal.
    bool readSome()
    {
        char block[4096];
        const ssize_t length = ::read(m_master, block, sizeof block);
        m_bytes.append(block, static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
        return length > 0;
    }

    int m_master;
    pid_t m_process = 0;
    std::string m_bytes;
};

} // namespace Quillmoran::Testing
