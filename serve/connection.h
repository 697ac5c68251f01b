// One connection of a web server, and the request on it.
#ifndef TARN_SERVE_CONNECTION_H
#define TARN_SERVE_CONNECTION_H

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "core/bytes.h"
#include "serve/account.h"
#include "serve/body.h"
#include "serve/child.h"
#include "serve/failure.h"
#include "serve/options.h"
#include "serve/output.h"
#include "serve/private_memory.h"
#include "serve/request_reader.h"
#include "serve/sender.h"

namespace tarn::server {

// What all connections of a worker share.
struct Shared {
  // What is read is handled before the next read, so one block serves all.
  static constexpr size_t kBufferSize = size_t{256} * 1024;

  // Sockets are read into the block from here on: a body has room to move down.
  static constexpr size_t kInput = BodyPart::kAlignment;

  // Where to read to: kBufferSize bytes, always the same. Null if memory runs out.
  char *buffer() { return buffer_.reserve(kBufferSize) ? buffer_.data() : nullptr; }

  // Closes what may be watched. A child that was forked a moment ago still has it open, too, and epoll
  // would go on to report it until that child gets to run.
  void close(int file) const;

  Options options;
  unsigned most_connections = 0;
  KeptFiles kept_files;
  CondemnedGroups condemned;
  Books books;
  int epoll = -1;     // what watches connections and children
  int null = -1;      // standard input of requests without a body
  Bytes environment;  // of the child that starts; empty at other times

 private:
  PrivateBytes buffer_;
};

// Where the request on a connection is.
enum class Stage {
  kIdle,       // there is none
  kReceiving,  // its parameters or its body arrive
  kWaiting,    // it has arrived, and waits for a child
  kRunning,    // a child answers it
  kDraining,   // the child has ended; processes that it started may still write
  kClosing,    // what is left to send is sent, then the connection is closed
  kLingering,  // everything is sent; what still arrives is thrown away
  kClosed,
};

inline constexpr size_t kStages = 8;

// What is known of a pipe before it is read.
enum class PipeState {
  kUnknown,
  kOpen,    // it has bytes, and more may come
  kEnding,  // it has bytes, and no more will come
  kEnded,   // it has none, and none will come
};

class Connection {
 public:
  // On a new connection nothing has arrived yet; others are from another worker.
  Connection(Shared &shared, int socket, bool is_new = true);
  ~Connection();
  Connection(const Connection &) = delete;
  Connection &operator=(const Connection &) = delete;

  // What epoll reports; times are in milliseconds. settle() must be called after any of them.
  void readSocket(uint64_t now);
  void disconnected(uint64_t now);
  void readOutput(uint64_t now, PipeState state = PipeState::kUnknown);
  void readErrors(PipeState state = PipeState::kUnknown);

  // Starts the child of a waiting request.
  void start(GroupPlace place, uint64_t now);

  // The child has ended with this status, as waitpid() reports it.
  void childEnded(int status, uint64_t now);

  // Answers a request that no child can answer.
  void refuse(Failure failure, const char *reason);

  // The child cannot be watched.
  void giveUp(uint64_t now);

  // The service ends: what does not arrive in a few seconds is given up. On a new connection a request
  // is expected, too.
  void hurry(uint64_t now);

  // Does what is due by now.
  void checkTime(uint64_t now);

  // Ends the request and the connection if that is possible now, and sends what can be sent.
  void settle(uint64_t now);

  void close();

  // When checkTime() has to be called; UINT64_MAX for never.
  uint64_t deadline() const { return std::min({deadline_, send_deadline_, held_until_}); }

  // Which events epoll has to report for the socket, and for the child's output and errors.
  uint32_t socketEvents() const;
  uint32_t outputEvents() const;

  // Whether nothing of a request has arrived or is expected soon, and nothing of an answer is left to
  // send.
  bool isIdle() const;

  Stage stage() const { return stage_; }
  int socket() const { return socket_; }
  const Child &child() const { return child_; }

 private:
  enum class Read { kMore, kNoMore };

  void takeEvent(RequestReader::Event event, uint64_t now);
  void takeParameters();
  void takeBody(BodyPart &part);
  bool storeBody(BodyPart &part);
  void finishBody();
  void inputEnded();
  void discard(size_t size);

  Read readSomeOutput(uint64_t now, PipeState state);
  Read readSomeErrors(PipeState state);
  void takeOutput(std::string_view bytes, bool is_last, uint64_t now);
  void sendOutput(std::string_view rest, bool is_last, uint64_t now);
  bool mayRead() const;
  bool isHead() const;
  bool hasWholeAnswer() const;

  void terminate(uint64_t now);
  void endIfDrained(uint64_t now);
  void finishAnswer();
  void explainEnd();
  void sendErrorPage();
  void closeAccount();
  void endRequest(uint32_t app_status);
  void releaseChild();
  void closeSocket();
  void resetSocket() const;
  void fail(Failure failure, const char *what);
  void log(const char *what) const;
  int exitStatus() const;

  Shared &shared_;
  const Options &options_;
  RequestReader reader_;
  Body body_;
  Output output_;
  Sender sender_;
  Child child_;
  Stage stage_ = Stage::kIdle;
  Failure failure_ = Failure::kNone;
  Account account_;
  int socket_;
  int status_ = 0;           // of the child, as waitpid() reports it
  bool exited_ = false;      // the child has ended
  bool terminated_ = false;  // its group was told to end
  bool killed_ = false;
  bool discards_ = false;       // what it writes is of no use any more
  bool sent_errors_ = false;    // a part of the answer is from its standard error
  bool input_ended_ = false;    // the server sends nothing more
  bool lingers_ = false;        // before the connection is closed, its input must be read
  bool is_new_;                 // nothing has arrived yet
  bool hurries_ = false;        // the service ends
  uint64_t declared_size_ = 0;  // of the body, by CONTENT_LENGTH
  uint64_t discarded_ = 0;      // bytes of a request that was refused
  uint64_t deadline_ = UINT64_MAX;
  uint64_t send_deadline_ = UINT64_MAX;  // when the server has to have taken something
  uint64_t held_until_ = UINT64_MAX;     // when a few bytes of the answer are sent at the latest
  uint64_t sent_ = 0;                    // how much it had taken when that was set
};

}  // namespace tarn::server

#endif
