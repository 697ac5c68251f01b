// Sequences of calls on all types of objects: handles that are valid, empty, null or of another
// type, lent ones, copies, lists handed over, elements of other types, holes. The input chooses the
// calls. What is left out is convention 9 of tarn.h, (a) to (e), and nothing else; each place says
// which.
#include "calls/player.h"

using namespace tarn_fuzz;

namespace {

constexpr size_t kMostObjects = 200;
constexpr int kMostCalls = 200;

// The script ends its objects by their types, unless other lists name their elements too (9e).
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
