#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <spawn.h>
#include <string>
#include <thread>
#include <vector>

#ifdef QT_CORE_LIB
#include <QFile>
#include <QStringList>
#endif

extern char **environ;

// The one way tests run another program: the tools archives are checked against, Python as an
// oracle, fiva-cli and fiva themselves. Plain C++, so the ZIP library's tests, which have no Qt,
// use it too.
namespace fiva::test {

struct ProcessRun
{
    int exitCode = -1; // -1 when it did not end normally
    std::string out;
    std::string err; // empty when merged into `out`
};

struct ProcessOptions
{
    std::vector<std::string> env{};       // NAME=value, added to this process's environment or replacing
    std::string folder{};                 // the working folder, if not this process's
    bool mergeOutput = false;             // standard error into `out`
    std::function<void()> whileWaiting{}; // called every few milliseconds until the program ends
};

inline std::string readAllOf(std::FILE *file)
{
    std::string text;
    std::rewind(file);
    char buffer[4096];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, file)) > 0;)
        text.append(buffer, n);
    std::fclose(file);
    return text;
}

// Runs `args` (the program first, found on PATH) to its end with nothing on its standard input.
// A program that cannot be started fails the test rather than skipping it.
inline ProcessRun runProcess(const std::vector<std::string> &args, const ProcessOptions &options = {})
{
    std::vector<std::string> env{};
    for (char **e = environ; *e; ++e) {
        const std::string entry(*e);
        bool replaced = false;
        for (const std::string &mine : options.env)
            replaced = replaced || entry.compare(0, mine.find('=') + 1, mine, 0, mine.find('=') + 1) == 0;
        if (!replaced)
            env.push_back(entry);
    }
    env.insert(env.end(), options.env.begin(), options.env.end());
    std::vector<char *> argv, envp;
    for (const std::string &a : args)
        argv.push_back(const_cast<char *>(a.c_str()));
    for (const std::string &e : env)
        envp.push_back(const_cast<char *>(e.c_str()));
    argv.push_back(nullptr);
    envp.push_back(nullptr);

    std::FILE *out = std::tmpfile(), *err = std::tmpfile();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, ::fileno(out), 1);
    posix_spawn_file_actions_adddup2(&actions, ::fileno(options.mergeOutput ? out : err), 2);
    if (!options.folder.empty())
        posix_spawn_file_actions_addchdir_np(&actions, options.folder.c_str());
    pid_t pid = -1;
    const int started = ::posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    ProcessRun run;
    if (started != 0) {
        ADD_FAILURE() << args[0] << " could not be started (" << std::strerror(started)
                      << "); scripts/install-deps installs it";
    } else {
        int status = 0;
        while (options.whileWaiting && ::waitpid(pid, &status, WNOHANG) == 0) {
            options.whileWaiting();
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        if (!options.whileWaiting)
            ::waitpid(pid, &status, 0);
        run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    run.out = readAllOf(out);
    run.err = readAllOf(err);
    return run;
}

#ifdef QT_CORE_LIB
inline ProcessRun runProcess(const QString &program, const QStringList &args,
                             const ProcessOptions &options = {})
{
    std::vector<std::string> all{QFile::encodeName(program).toStdString()};
    for (const QString &arg : args)
        all.push_back(QFile::encodeName(arg).toStdString());
    return runProcess(all, options);
}
#endif

} // namespace fiva::test
