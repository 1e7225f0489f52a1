#include "replay/model/visit_setup.h"

namespace replay {

void AddToIndex(const Page& page, RequestIndex& index) {
  for (const Request& request : page.requests) {
    if (request.method == "GET") index.try_emplace(request.url, &request);
  }
}

const Request* FindRecorded(const VisitSetup& setup, const host::TransferRequest& request) {
  if (request.requestId != 0) return &setup.page.requests[request.requestId - 1];
  for (const RequestIndex* const index : {&setup.pageIndex, &setup.recordingIndex}) {
    if (const auto found = index->find(request.url); found != index->end()) return found->second;
  }
  return nullptr;
}

}  // namespace replay
