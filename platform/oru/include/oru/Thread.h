#ifndef ORU_THREAD_H
#define ORU_THREAD_H

#include <memory>

namespace oru {

/// A thread as an object: derive, override run(), call start().
///
/// stop(), exit() and join() before start(), and a second join(), return at once. The destructor joins a thread that
/// was started and neither joined nor detached; when it runs, the derived part is gone already, so a class whose run()
/// uses its own members joins in its own destructor. A detached object must outlive its run(). An object may be
/// destroyed by its own run(), as the last thing that touches it.
///
/// The order of the virtual operations is part of the interface.
class Thread {
public:
    virtual ~Thread();

    /// Runs run() on a new thread and returns once that thread is there. Once only: a second start throws
    /// std::logic_error. Throws std::system_error when the system gives no thread; the object may then be started
    /// later.
    virtual void start();
    /// The thread's body.
    virtual void run() = 0;
    /// Asks the body to end: isStopRequested() tells it, also when it starts only later. Does not wait.
    virtual void stop();
    /// stop(), then join().
    virtual void exit();
    /// Waits until run() has returned. From inside run(), and once detached, it returns at once.
    virtual void join();
    /// Lets the thread go its own way: nobody joins it any more. Does nothing before start().
    virtual void detach();

protected:
    Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    bool isStopRequested() const;

private:
    struct State;
    static void* main(void* start);

    std::shared_ptr<State> m_state; ///< shared with the thread, which may end after this object
};

} // namespace oru

#endif
