#pragma once

#include <chrono>
#include <csignal>
#include <functional>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace testing_support {

// Runs writeForever in forked children and kills each one (SIGKILL) at a different moment;
// after every kill, check(round) looks at what the writer left behind. The calling process
// must have no other threads running.
inline void killWritersAtVaryingMoments(int rounds, const std::function<void()>& writeForever,
                                        const std::function<void(int)>& check) {
    for (int round = 0; round < rounds; ++round) {
        const pid_t child = fork();
        if (child < 0)
            throw std::runtime_error("fork failed");
        if (child == 0) {
            writeForever();
            _exit(0);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(3 + (round * 7) % 37));
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        check(round);
    }
}

} // namespace testing_support
