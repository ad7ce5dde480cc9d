// Work on threads of its own: an object is one thread, with hooks around its life.
//
// The owner's thread starts and closes it; it must not close or delete it while the thread still runs, and
// waits for the end first (WaitExitCode, GetExitEvent). A class derived from one of these calls Close in its
// destructor when it overrides OnClose.
#pragma once

#include <memory>

#include <kelstdmt/export.h>
#include <kelstdmt/iolib.h>
#include <kelstdmt/vumrt_event.h>
#include <kelstdmt/vumrt_thread.h>

class KELSTDMT_API netBaseThread {
public:
    netBaseThread() = default;
    virtual ~netBaseThread();
    netBaseThread(const netBaseThread &) = delete;
    netBaseThread &operator=(const netBaseThread &) = delete;

    // False when OnPreStart refuses, when the thread cannot be started, and while it is started already.
    bool Start();
    void Close();
    bool IsExited();
    int WaitExitCode();  // what OnStart answered; waits for the end
    // A new event, owned by the caller: the thread has ended. It must not outlive the thread object's being
    // open and its exit code not yet collected.
    btkBaseEvent *GetExitEvent();

protected:
    virtual bool OnPreStart();  // before the thread starts; false: it does not
    // On the new thread; its answer is the exit code. An exception that leaves it is reported (_Abort) and
    // makes the exit code the nil int.
    virtual int OnStart() = 0;
    virtual void OnPostStart();       // on the starting thread, once it runs
    virtual void AtFork(bool child);  // for platforms where threads do not share descriptors; not called here
    virtual void OnClose();

private:
    static int Body(void *self);
    static void Fork(void *self, bool child);

    btkThreadHandle m_handle = -1;
    bool m_started = false;
    bool m_waited = false;
    int m_exit_code = 0;
};

// A thread that its owner can signal through a pipe.
class KELSTDMT_API netThread : public netBaseThread {
public:
    netThread();
    ~netThread() override;

    int GetExitCode() { return WaitExitCode(); }
    btkBaseEvent *GetExitEvent() { return netBaseThread::GetExitEvent(); }
    ioStream *ControlStream();  // the owner writes here; null while there is no pipe

protected:
    ioStream *SignalStream();  // the thread reads here

    bool OnPreStart() override;
    void OnPostStart() override;
    void AtFork(bool child) override;
    void OnClose() override;

private:
    std::unique_ptr<ioPipe> m_pipe;
};
