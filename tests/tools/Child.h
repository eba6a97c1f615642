#ifndef TESTS_TOOLS_CHILD_H
#define TESTS_TOOLS_CHILD_H

#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

/// A process that runs a function or a program, after a minute at the latest no more. What it says goes into a file.
class Child
{
public:
    Child(const std::filesystem::path& said, const std::function<int()>& function)
    {
        std::fflush(nullptr); // else the child would say it again
        m_pid = fork();
        if (m_pid != 0)
            return;
        alarm(60);
        const int output = open(said.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(output, STDOUT_FILENO);
        dup2(output, STDERR_FILENO);
        _exit(function());
    }
    Child(const std::filesystem::path& said, std::vector<std::string> words)
        : Child(said,
                [&]
                {
                    std::vector<char*> argv;
                    for (std::string& word : words)
                        argv.push_back(word.data());
                    argv.push_back(nullptr);
                    return execvp(argv[0], argv.data());
                })
    {
    }
    ~Child() { end(SIGKILL); }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    bool ended()
    {
        siginfo_t info{};
        waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOHANG | WNOWAIT);
        return info.si_pid != 0;
    }

    /// Sends a signal (0: none) and waits. \return exit code; -1 for a process that a signal killed
    int end(int signal = 0)
    {
        int status = -1;
        if (m_pid > 0)
        {
            kill(m_pid, signal);
            waitpid(m_pid, &status, 0);
        }
        m_pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t m_pid = -1;
};

template <class Condition>
bool eventually(const Condition& condition)
{
    for (int tries = 0; tries < 4000 && !condition(); ++tries)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return condition();
}

#endif
