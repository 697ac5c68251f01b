// Makes sequences of calls, chosen by the input, on every type of object: with handles that are
// valid, empty, null, borrowed or of the wrong type, with copies, with lists that change owner, and
// with lists that contain holes or elements of the wrong type. Only the calls that convention 9 of
// tarn.h rules out, (a) to (e), are left out; a comment at each such place names the letter.
#include "calls/player.h"

using namespace tarn_fuzz;

namespace {

constexpr size_t kMostObjects = 200;
constexpr int kMostCalls = 200;

// Deletes each object with the function of its type, as a script would, unless other lists name its
// elements too (convention 9 (e)).
void endAll(Player &play) {
  Variables &variables = play.variables;
  for (uint32_t i = 0; i < Variables::kCount; ++i) {
    TarnHandle &handle = variables[i];
    const bool owns = variables.ownsElements(handle);
    variables.watch();
    if (owns) {
      play.expectElementsFreed(handle);
      Tarn_delete(&handle);
      CgiEnv_delete(&handle);
      HTTPHeader_delete(&handle);
      HTTPResponseHeader_delete(&handle);
      HTMLElement_delete(&handle);
      for (const ListType *type : kListTypes) {
        if (!CGIgs_IsA(&handle, type->magic)) continue;
        play.expectElementsFreed(*type, handle);
        type->remove(&handle);
      }
    }
    if (handle) deleteObject(std::exchange(handle, 0));
    variables.settle();
  }
  EXPECT(variables.reach().size() == 0);
}

}  // namespace

void fuzz(Input input) {
  const bool multipart = input.below(2) == 1;
  Script script({{"REQUEST_METHOD", multipart ? "POST" : "GET"},
                 {"QUERY_STRING", "a=1&name=on&a=2"},
                 {"HTTP_COOKIE", "a=1; b"},
                 {"CONTENT_LENGTH", "60"},
                 {"CONTENT_TYPE", multipart ? "multipart/form-data; boundary=b" : ""}},
                "--b\r\nname=\"f\"; filename=\"x\"\r\nContent-Type: t\r\n\r\ndata\r\n--b--\r\n");
  const Calls families[] = {coreCalls(), listCalls(), requestCalls(), responseCalls()};
  Player play(input);
  for (int calls = 0; calls < kMostCalls && !input.empty(); ++calls) {
    const Calls family = families[input.below(4)];
    play.variables.watch();
    family[input.below(static_cast<uint32_t>(family.size()))](play);
    play.variables.settle();
    play.endCall();
    if (play.variables.reach().size() > kMostObjects) break;
  }
  endAll(play);
}
