#ifndef XAL_EVENTLOOPCONTEXT_H
#define XAL_EVENTLOOPCONTEXT_H

#include "EventLoop.h"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>

#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>

namespace xal {

/// The loop's Asio side, for the few files that open sockets.
struct EventLoop::Context {
    using Guard = boost::asio::executor_work_guard<boost::asio::io_context::executor_type>;

    boost::asio::io_context io{1};
    std::optional<Guard> guard{boost::asio::make_work_guard(io)}; ///< guarded by mutex

    std::mutex mutex; ///< guards what follows
    std::condition_variable ended;
    bool isEnding = false; ///< nothing is taken any more
    bool isOver = false;
    std::thread thread;
};

} // namespace xal

#endif
