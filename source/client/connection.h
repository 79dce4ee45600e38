// One connection to the daemon. Sends and receives at the same time, so that neither side ever waits for the
// other to read.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "client/deadline.h"
#include "common/marshalling.h"
#include "process/descriptor.h"

namespace client {

// The daemon closed the connection: it refused a write sequence, or ended.
class ConnectionLost {};

struct Answer {
    uint32_t code = 0;
    std::vector<unsigned char> bytes;
    std::vector<Parameter> entries;  // borrowed from bytes
};

// Tells a daemon from the one that was started after it.
struct DaemonIdentity {
    pid_t process = 0;  // 0: in another process namespace
    dev_t device = 0;   // of the socket file, which every daemon makes anew
    ino_t inode = 0;
    timespec made = {};

    bool operator==(const DaemonIdentity& other) const;
};

// Unless said otherwise a function throws Failure: OSTREL_BUSY when the deadline passes, OSTREL_FAILED when a
// system call fails or the daemon's bytes make no sense.
class Connection {
public:
    // Also throws Failure with OSTREL_NOT_RUNNING or OSTREL_STALE_SOCKET. Waits for a place in the daemon's
    // short queue. name is what the daemon shows in its log; it leaves with the first message. Nothing is
    // sent to a user who is neither root, the caller nor daemonUser (see namedUser()): that is OSTREL_FAILED.
    Connection(const std::string& name, const std::string& daemonUser, const Deadline& deadline);
    ~Connection() = default;
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    const DaemonIdentity& daemon() const { return daemon_; }

    // Puts a frame with the payload behind those that wait to be sent; does no I/O.
    void queue(std::span<const unsigned char> payload);
    void queue(uint32_t code) { queue(ParametersBuilder(code).bytes()); }
    // Bytes that were ever queued, and how many of them the system has taken.
    size_t queued() const { return sent_ + outgoing_.size() - outgoingAt_; }
    size_t sent() const { return sent_; }

    // Sends what is queued. whenSent is called each time the system has taken some of it. Throws
    // ConnectionLost.
    void flush(const Deadline& deadline, const std::function<void()>& whenSent = {});
    // The next answer; sends what is queued meanwhile. Throws ConnectionLost once there are no more answers.
    Answer receive(const Deadline& deadline);

    // Waits until the daemon has served all that was sent before. Throws ConnectionLost.
    void confirm(const Deadline& deadline);

private:
    void connectSocket(const Deadline& deadline);
    void identify(const std::string& daemonUser);
    bool takeFrame(Answer& answer);
    bool isAllSent() const { return outgoingAt_ == outgoing_.size(); }
    void waitAndMove(const Deadline& deadline);
    void send();
    void receiveSome();

    process::Descriptor fd_;
    DaemonIdentity daemon_;
    uint32_t counter_ = 0;
    std::string outgoing_;
    size_t outgoingAt_ = 0;  // what stands before it has been sent
    size_t sent_ = 0;
    std::vector<unsigned char> incoming_;
    size_t incomingAt_ = 0;  // what stands before it has been taken
    bool broken_ = false;    // no more can be sent
    bool closed_ = false;    // no more will come
};

}  // namespace client
