// Processes, and what they say: each writes its results and its complaints to two files in memory,
// which are passed on when all pictures before it have been.
#include "vorla/batch.h"

#include "vorla/progress.h"

#include <sched.h>
#include <signal.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <optional>

namespace {

struct Worker {
    size_t picture;
    int results; // files in memory
    int complaints;
};

struct Finished {
    int status; // as of waitpid
    std::string results;
    std::string complaints;
};

std::string take_text(int file)
{
    std::string text(static_cast<size_t>(lseek(file, 0, SEEK_END)), '\0');
    const ssize_t count = pread(file, text.data(), text.size(), 0);
    text.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
    close(file);
    return text;
}

// The processes at work. They are ended with it.
struct Workers {
    std::map<pid_t, Worker> running;

    Workers() = default;
    Workers(const Workers &) = delete;
    Workers &operator=(const Workers &) = delete;
    ~Workers()
    {
        for (const auto &[process, worker] : running) {
            (void)kill(process, SIGTERM);
        }
        for (const auto &[process, worker] : running) {
            while (waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
            }
        }
    }
    void start(size_t picture, const std::function<ExitCode(size_t)> &work);
    std::pair<size_t, Finished> wait_for_one();
};

[[noreturn]] void work_in_process(const Worker &worker, const std::function<ExitCode(size_t)> &work)
{
    (void)prctl(PR_SET_PDEATHSIG, SIGTERM); // nobody is left to read the results
    (void)dup2(worker.results, STDOUT_FILENO);
    (void)dup2(worker.complaints, STDERR_FILENO);
    int status = EXIT_IO;
    try {
        status = attempt([&] { return work(worker.picture); });
        (void)fflush(stdout);
    } catch (const Interrupted &) {
        status = 128 + interrupt_signal();
    }
    _exit(status);
}

void Workers::start(size_t picture, const std::function<ExitCode(size_t)> &work)
{
    const Worker worker = {picture, memfd_create("results", MFD_CLOEXEC),
                           memfd_create("complaints", MFD_CLOEXEC)};
    (void)fflush(nullptr);
    const pid_t process = worker.results < 0 || worker.complaints < 0 ? -1 : fork();
    if (process < 0) {
        fail_system("", "cannot start a process");
    }
    if (process == 0) {
        work_in_process(worker, work);
    }
    running[process] = worker;
}

std::pair<size_t, Finished> Workers::wait_for_one()
{
    int status = 0;
    pid_t process = -1;
    while (process < 0) {
        check_interrupt();
        process = waitpid(-1, &status, 0);
    }
    const Worker worker = running.at(process);
    running.erase(process);
    return {worker.picture, {status, take_text(worker.results), take_text(worker.complaints)}};
}

ExitCode pass_on_all(const Finished &finished, const std::string &picture)
{
    pass_on(finished.results, finished.complaints);
    const int status = finished.status;
    if (WIFEXITED(status) && WEXITSTATUS(status) <= EXIT_MODULE) {
        return static_cast<ExitCode>(WEXITSTATUS(status));
    }
    const int number = WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status) - 128;
    complain(picture, text_of("the process for the picture was ended: ", strsignal(number)));
    return EXIT_IO;
}

} // namespace

int usable_processors()
{
    cpu_set_t processors;
    return sched_getaffinity(0, sizeof processors, &processors) == 0 ? CPU_COUNT(&processors) : 1;
}

ExitCode run_batch(const Session &session, const std::string &name, const Names &pictures,
                   const std::function<ExitCode(size_t)> &work)
{
    const Options &options = session.options;
    const size_t count = pictures.size();
    const int most = options.processes > 0 ? options.processes : usable_processors();
    const bool alone =
        most == 1 || count <= 1 || std::count(options.files.begin(), options.files.end(), "-") > 0;
    std::optional<Progress> progress;
    if (count > 1) {
        progress.emplace(name, static_cast<int64_t>(count), "files");
    }
    ExitCode code = EXIT_FINE;
    Workers workers;
    std::map<size_t, Finished> finished; // that wait for one before them
    size_t started = 0;
    for (size_t done = 0; done < count; ++done) {
        if (alone) {
            code = worst(code, attempt([&] { return work(done); }));
        }
        while (!alone && finished.find(done) == finished.end()) {
            for (; started < count && workers.running.size() < static_cast<size_t>(most);
                 ++started) {
                workers.start(started, work);
            }
            finished.insert(workers.wait_for_one());
        }
        if (!alone) {
            code = worst(code, pass_on_all(finished.at(done), pictures[done]));
            finished.erase(done);
        }
        if (progress) {
            progress->show(static_cast<int64_t>(done) + 1);
        }
    }
    return code;
}
