#ifndef TESTS_DEVICES_PRIVATE_X_SERVER_H
#define TESTS_DEVICES_PRIVATE_X_SERVER_H

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

/// An Xvfb on a free display, which DISPLAY names from then on. It ends with the object, or with the test program.
class PrivateXServer
{
public:
    PrivateXServer()
    {
        int ends[2];
        if (pipe(ends) != 0)
            throw std::runtime_error("no pipe for Xvfb");
        m_process = fork();
        if (m_process == 0)
        {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            const std::string fd = std::to_string(ends[1]);
            execlp("Xvfb", "Xvfb", "-displayfd", fd.c_str(), "-screen", "0", "1280x1024x24", "-nolisten", "tcp",
                   "-noreset", static_cast<char*>(nullptr));
            _exit(127);
        }
        close(ends[1]);
        std::string number;
        for (char digit; read(ends[0], &digit, 1) == 1 && digit != '\n';)
            number += digit;
        close(ends[0]);
        if (number.empty())
            throw std::runtime_error("Xvfb did not start");
        setenv("DISPLAY", (":" + number).c_str(), 1);
    }

    ~PrivateXServer() { stop(); }

    PrivateXServer(const PrivateXServer&) = delete;
    PrivateXServer& operator=(const PrivateXServer&) = delete;

    /// Kills it; the connections to it are dead when this returns.
    void stop()
    {
        if (m_process <= 0)
            return;
        kill(m_process, SIGKILL);
        waitpid(m_process, nullptr, 0);
        m_process = -1;
    }

private:
    pid_t m_process = -1;
};

#endif
