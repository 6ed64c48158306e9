#ifndef CDXEXAMPLES_PLUMBING_H
#define CDXEXAMPLES_PLUMBING_H

#include <oru/Json.h>

#include <condition_variable>
#include <csignal>
#include <deque>
#include <exception>
#include <fstream>
#include <functional>
#include <iostream>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

/// What every application needs and car data exchange has nothing to do with.
namespace plumbing {

/// To standard error, since the framework writes its diagnostics to standard output; in one piece, so that lines of
/// other threads do not come between.
inline void print(const std::string& line) {
    std::cerr << line + "\n";
}

inline std::string compact(const oru::Json::Value& document) {
    oru::Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return oru::Json::writeString(builder, document);
}

/// Throws a std::exception when the file cannot be read or holds no JSON.
inline oru::Json::Value documentIn(const std::string& path) {
    std::ifstream file(path);
    if (!file)
        throw std::runtime_error("cannot read " + path);
    oru::Json::Value document;
    file >> document;
    return document;
}

/// Makes an `Application` of the two documents that the command line names, and destroys it on Ctrl-C or SIGTERM.
/// Gives the process's exit status.
template <class Application>
int runUntilSignalled(int argc, char** argv) {
    if (argc != 3) {
        print(std::string("usage: ") + argv[0] + " REGISTRY.json SERVICE.json");
        return 2;
    }
    // Blocked before the first thread starts, so that every thread inherits it and the signals wait for sigwait().
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    try {
        Application application(documentIn(argv[1]), documentIn(argv[2]));
        int signal = 0;
        sigwait(&ends, &signal);
    } catch (const std::exception& error) {
        print(std::string(argv[0]) + ": " + error.what());
        return 1;
    }
    return 0;
}

/// A thread and a queue of work for it: handlers post, so that slow work does not hold the framework's thread up.
class Jobs {
public:
    Jobs() : m_thread([this] { run(); }) {}
    Jobs(const Jobs&) = delete;
    Jobs& operator=(const Jobs&) = delete;

    ~Jobs() { finish(); }

    /// Does what was posted so far and ends the thread; what is posted later is never done.
    void finish() {
        if (m_thread.joinable()) {
            post({});
            m_thread.join();
        }
    }

    void post(std::function<void()> job) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_jobs.push_back(std::move(job));
        m_posted.notify_one();
    }

private:
    void run() {
        while (const auto job = next())
            job();
    }

    std::function<void()> next() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_posted.wait(lock, [this] { return !m_jobs.empty(); });
        auto job = std::move(m_jobs.front());
        m_jobs.pop_front();
        return job;
    }

    std::mutex m_mutex;
    std::condition_variable m_posted;
    std::deque<std::function<void()>> m_jobs;
    std::thread m_thread; // last: it uses the others
};

} // namespace plumbing

#endif
