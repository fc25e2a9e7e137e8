// Processes, and what they say: each writes its results and its complaints to two files in memory,
// which are passed on when all pictures before it have been.
#include "vorla/batch.h"

#include <sched.h>
#include <signal.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <deque>

namespace {

using Work = std::function<ExitCode(size_t)>;

// The process of a picture, and what it says.
struct Worker {
    pid_t process = 0; // 0 when it has ended, with the status
    int status = 0;    // as of waitpid
    int files[2] = {memfd_create("results", MFD_CLOEXEC), memfd_create("complaints", MFD_CLOEXEC)};
    std::string texts[2]; // of the files, which are closed then
};

std::string take_text(int file)
{
    std::string text(static_cast<size_t>(lseek(file, 0, SEEK_END)), '\0');
    const ssize_t count = pread(file, text.data(), text.size(), 0);
    close(file);
    return text.substr(0, static_cast<size_t>(std::max<ssize_t>(count, 0)));
}

// The workers of consecutive pictures. The destructor ends their processes.
struct Workers {
    std::deque<Worker> list;
    int running = 0;

    Workers() = default;
    Workers(const Workers &) = delete;
    Workers &operator=(const Workers &) = delete;
    ~Workers()
    {
        for (const Worker &worker : list) {
            (void)(worker.process != 0 ? kill(worker.process, SIGTERM) : 0);
        }
        for (const Worker &worker : list) {
            while (worker.process != 0 && waitpid(worker.process, nullptr, 0) < 0 &&
                   errno == EINTR) {
            }
        }
    }

    void start(size_t picture, const Work &work)
    {
        Worker worker;
        worker.process = worker.files[0] < 0 || worker.files[1] < 0 ? -1 : fork();
        if (worker.process < 0) {
            fail_system("", "cannot start a process");
        }
        if (worker.process == 0) {
            (void)prctl(PR_SET_PDEATHSIG, SIGTERM); // end with the parent, who reads the results
            (void)dup2(worker.files[0], STDOUT_FILENO);
            (void)dup2(worker.files[1], STDERR_FILENO);
            _exit(attempt_all([&] { return work(picture); }));
        }
        list.push_back(worker);
        ++running;
    }

    void wait_for_one()
    {
        int status = 0;
        pid_t process = -1;
        while (process < 0) {
            check_interrupt();
            process = waitpid(-1, &status, 0);
        }
        for (Worker &worker : list) { // has no match for a child that this process inherited
            if (worker.process == process) {
                worker.process = 0;
                worker.status = status;
                worker.texts[0] = take_text(worker.files[0]);
                worker.texts[1] = take_text(worker.files[1]);
                --running;
            }
        }
    }

    ExitCode pass_on_first(const std::string &picture)
    {
        const Worker worker = list.front();
        list.pop_front();
        pass_on(worker.texts[0], worker.texts[1]);
        if (WIFSIGNALED(worker.status)) {
            throw Failure(EXIT_IO, picture, "the process for the picture was ended: ",
                          strsignal(WTERMSIG(worker.status)));
        }
        return static_cast<ExitCode>(WEXITSTATUS(worker.status));
    }
};

} // namespace

ExitCode run_batch(const Session &session, const std::string &name, const Names &pictures,
                   const Work &work)
{
    const Options &options = session.options;
    cpu_set_t usable = {};
    (void)sched_getaffinity(0, sizeof usable, &usable);
    const int most = options.processes > 0 ? options.processes : CPU_COUNT(&usable);
    const bool alone = most <= 1 || pictures.size() <= 1 ||
                       std::count(options.files.begin(), options.files.end(), "-") > 0;
    Progress progress(name, static_cast<int64_t>(pictures.size()), "files");
    ExitCode code = EXIT_FINE;
    Workers workers;
    for (size_t done = 0; done < pictures.size(); ++done) {
        while (!alone && (workers.list.empty() || workers.list.front().process != 0)) {
            for (size_t next = done + workers.list.size();
                 next < pictures.size() && workers.running < most; ++next) {
                workers.start(next, work);
            }
            workers.wait_for_one();
        }
        code = worst(code, attempt([&] {
                         return alone ? work(done) : workers.pass_on_first(pictures[done]);
                     }));
        progress.show(static_cast<int64_t>(done) + 1);
    }
    return code;
}
