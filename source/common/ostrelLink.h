// One end of the local stream socket, and the frame that every message travels in: the payload's size and the
// sender's counter, two little-endian 32-bit words, then the payload.
//
// A link is used by one thread at a time and has no lock. Every failure is logged where it is found and
// reported as false. Sizes are in bytes.
#pragma once

#include <atomic>
#include <chrono>
#include <mutex>

// How long a link puts up with its peer, and where it puts one. The default is for ever and anywhere, which
// suits a client; the server sets all, before it has a second thread.
struct LinkLimits {
    // Longest time from a frame's first byte to its last, and longest time in which the peer takes nothing of
    // what is sent to it. 0: no limit.
    std::chrono::milliseconds stall{0};
    // Bytes per second that the peer must take on average of a frame that takes longer than stall to send, as
    // soon as it does: not fewer than sendRate for each second after the first wait and stall. 0: no limit.
    unsigned int sendRate = 0;
    // Non-zero ends every wait within a second, at once when a signal set it. Borrowed; may be null.
    const std::atomic<int>* stopRequested = nullptr;
    // Accepted sockets get this number or a higher one.
    int firstAccepted = 0;
};

class ostrelLink {
public:
    int fd = -1;  // owned; -1 without a socket
    unsigned int ostrCounter = 0;

    static LinkLimits limits;
    // Held while a client is accepted: until it is released no accepted socket takes a descriptor.
    static std::mutex accepting;

    ostrelLink() = default;
    explicit ostrelLink(int fd);  // taken; interface only
    ~ostrelLink();
    ostrelLink(const ostrelLink&) = delete;
    ostrelLink& operator=(const ostrelLink&) = delete;

    // Replaces the socket file and listens on it. The port is only logged.
    bool bindTo(unsigned int port);
    // Blocks until a client connects, with accepting held; retries a failing accept twice a second. The
    // caller owns the descriptor; -1 only when accept fails and a stop is requested.
    int getNewConnection();
    // The client's side; interface only. The port is not used.
    bool connectTo(unsigned int port);

    // Exactly nbBytes bytes, or failure. Interface only: messages go their own way.
    bool sendData(unsigned int nbBytes, unsigned char* bytes);
    bool receiveData(unsigned int nbBytes, unsigned char* bytes);
    bool write32(unsigned int word);
    bool read32(unsigned int* word);

    bool sendMessage(unsigned int nbBytes, unsigned char* bytes);
    // Waits without limit for a frame to begin. Fails at once, with the payload unread, when it is longer
    // than bufferSize: the stream is then out of step and the link of no more use.
    bool receiveMessage(unsigned int bufferSize, unsigned int* payloadSize, unsigned char* buffer);
    // The same for a caller whose own wait found the link readable: fails when no byte is there after all, as
    // on a socket whose urgent byte made it look readable.
    bool receiveReadyMessage(unsigned int bufferSize, unsigned int* payloadSize, unsigned char* buffer);

    // True once a send has found that the peer has closed its end. What it sent before can still be received,
    // and sending is tried all the same.
    bool peerGone() const { return sending_ == Sending::peerGone; }
    // False once a send was given up for another reason, such as a peer that does not read: part of a frame
    // may be out, so nothing that follows would be understood.
    bool usable() const { return sending_ != Sending::givenUp; }

private:
    struct Frame;
    struct Outgoing;
    enum class Sending { works, peerGone, givenUp };

    bool send(unsigned int nbBytes, const void* bytes, Outgoing& frame);
    bool waitWritable(Outgoing& frame);
    bool receive(unsigned int nbBytes, unsigned char* bytes, Frame& frame);
    bool receiveFrame(unsigned int bufferSize, unsigned int* payloadSize, unsigned char* buffer,
                      Frame& frame);
    bool waitReadable(Frame& frame);
    bool waitsInReceive();

    bool waitsInReceive_ = false;  // the socket's own time limit is set
    Sending sending_ = Sending::works;
};

bool _SetCloseOnExec(int fd);
