#include "support/request_events.h"

#include <algorithm>

#include "serve/output.h"
#include "serve/request_reader.h"

namespace tarn_test {
namespace {

using namespace tarn::server;

// Takes the next part of a text off it. It is copied into a block of its own, so that reading beyond
// it is an error that the address sanitizer finds.
class Parts {
 public:
  explicit Parts(const std::vector<size_t> &sizes) : sizes_(sizes) {}

  std::vector<char> take(std::string_view &text) {
    const size_t size = sizes_.empty() ? text.size() : sizes_[next_++ % sizes_.size()];
    const std::string_view part = text.substr(0, size);
    text.remove_prefix(part.size());
    return {part.begin(), part.end()};
  }

 private:
  const std::vector<size_t> &sizes_;
  size_t next_ = 0;
};

std::string describe(const Parameters &parameters) {
  switch (parameters.state()) {
    case Parameters::State::kComplete:
      break;
    case Parameters::State::kMalformed:
      return "malformed parameters";
    case Parameters::State::kTooMany:
      return "too many parameters";
    default:
      return "incomplete parameters";
  }
  std::string inherited = kInherited;
  std::string of_request = kInheritedRequest;
  char *all[] = {inherited.data(), of_request.data(), nullptr};
  tarn::Bytes block;
  char **environment = parameters.environment(all, block);
  if (!environment) return "no memory";
  std::vector<std::string> variables;
  for (char **variable = environment; *variable; ++variable) variables.emplace_back(*variable);
  std::sort(variables.begin(), variables.end(), [](const std::string &a, const std::string &b) {
    return a.substr(0, a.find('=')) < b.substr(0, b.find('='));
  });
  std::string event = "parameters";
  for (const std::string &variable : variables) event += " " + variable;
  return event;
}

class Connection {
 public:
  explicit Connection(const ConnectionRules &rules)
      : answers_(rules.answers),
        reader_({rules.most_parameters, rules.most_parameter_bytes}, rules.connections) {}

  // Returns false when the connection would be closed.
  bool take(std::string_view part) {
    for (;;) {
      const RequestReader::Event event = reader_.next(part);
      if (event == RequestReader::Event::kNone) return part.empty();
      takeEvent(event);
      if (event == RequestReader::Event::kRefusal) return false;
      if (event == RequestReader::Event::kMalformed) {
        if (!staysMalformed(part)) events.emplace_back("goes on");
        return false;
      }
    }
  }

  void answer() { reader_.finish(); }

  Events events;

 private:
  void takeEvent(RequestReader::Event event);

  bool staysMalformed(std::string_view part) {
    std::string_view next = "\1\1\0\1\0\0\0\0";
    return reader_.next(part) == RequestReader::Event::kMalformed &&
           reader_.next(next) == RequestReader::Event::kMalformed;
  }

  void takeBody() {
    if (answers_ == Answers::kAtTheFirstByteOfTheBody) {
      events.emplace_back("body");
      answer();
    } else {
      const bool follows = !events.empty() && events.back().starts_with("body ");
      if (!follows) events.emplace_back("body ");
      events.back() += reader_.body();
    }
  }

  Answers answers_;
  RequestReader reader_;
};

void Connection::takeEvent(RequestReader::Event event) {
  const bool answers = answers_ != Answers::kNever;
  switch (event) {
    case RequestReader::Event::kBegin:
      events.push_back("begin " + std::to_string(reader_.request()) +
                       (reader_.keepsConnection() ? ", keep" : ""));
      break;
    case RequestReader::Event::kParameters:
      events.push_back(describe(reader_.parameters()));
      if (answers && reader_.parameters().state() != Parameters::State::kComplete) answer();
      break;
    case RequestReader::Event::kBody:
      takeBody();
      break;
    case RequestReader::Event::kBodyEnd:
      events.emplace_back("body end");
      if (answers) answer();
      break;
    case RequestReader::Event::kAbort:
      events.emplace_back("abort");
      if (answers) answer();
      break;
    case RequestReader::Event::kReply:
      events.push_back("reply " + std::string(reader_.reply()));
      break;
    case RequestReader::Event::kRefusal:
      events.push_back("refusal " + std::string(reader_.reply()));
      break;
    case RequestReader::Event::kMalformed:
      events.emplace_back("malformed");
      break;
    case RequestReader::Event::kNone:
      break;
  }
}

}  // namespace

Events eventsOf(const std::vector<std::string> &pieces, const ConnectionRules &rules,
                const std::vector<size_t> &sizes) {
  Connection connection(rules);
  Parts parts(sizes);
  for (size_t i = 0; i < pieces.size(); ++i) {
    if (i > 0) connection.answer();
    std::string_view rest = pieces[i];
    while (!rest.empty()) {
      const std::vector<char> part = parts.take(rest);
      if (!connection.take({part.data(), part.size()})) return connection.events;
    }
  }
  return connection.events;
}

ModelAnswer answerOf(std::string_view written, const std::vector<size_t> &sizes) {
  Output output;
  Parts parts(sizes);
  ModelAnswer answer;
  Output::State state = output.state();
  while (!written.empty()) {
    const std::vector<char> part = parts.take(written);
    std::string_view rest;
    state = output.take({part.data(), part.size()}, rest);
    answer.header += output.header();
    if (state == Output::State::kBody) answer.body += rest;
  }
  answer.state = state == Output::State::kHeader ? ModelAnswer::State::kNoHeaderYet
                 : state == Output::State::kBody ? ModelAnswer::State::kHeader
                                                 : ModelAnswer::State::kBad;
  answer.is_short = output.isShort();
  answer.is_whole = output.isWhole();
  return answer;
}

}  // namespace tarn_test
