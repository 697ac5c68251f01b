// Passes connections from one process to another.
#ifndef TARN_SERVE_HANDOVER_H
#define TARN_SERVE_HANDOVER_H

namespace tarn::server {

// Opens two sockets: what is sent on one end arrives at the other. Returns false with errno set.
bool openHandover(int (&ends)[2]);

// Sends a descriptor, of which this process keeps its own copy. Returns 0 or an errno value: EAGAIN
// while too many have not been received.
int sendDescriptor(int channel, int descriptor);

// Receives a descriptor. Returns -1 if there is none.
int receiveDescriptor(int channel);

}  // namespace tarn::server

#endif
