#include "TraceOpenRequests.h"

namespace httppool {

TraceOpenRequest& TraceOpenRequests::add(const TraceRecord& record) {
  if (open_.size() >= kMost) {
    ++givenUp_;
    close(open_.begin()->first);
  }
  TraceOpenRequest& added = open_[++lastNumber_];
  added.request.number = lastNumber_;
  added.request.process = record.thread.process;
  added.request.start = record.time;
  added.request.end = record.time;
  added.request.offsetMinutes = record.offsetMinutes;
  return added;
}

TraceOpenRequest* TraceOpenRequests::find(Number number) {
  const auto found = open_.find(number);
  return found == open_.end() ? nullptr : &found->second;
}

void TraceOpenRequests::identify(Number number, std::uint64_t downloader) {
  TraceOpenRequest& identified = *find(number);
  identified.downloader = downloader;
  identified.isIdentified = true;
  // The memory of a downloader whose end is not in the log may be another's by now.
  downloaders_[{identified.request.process, downloader}] = number;
}

void TraceOpenRequests::setSession(Number number, std::int64_t session) {
  TraceRequest& request = find(number)->request;
  request.session = session;
  sessions_[{request.process, session}].push_back(number);
}

TraceOpenRequests::Number TraceOpenRequests::ofDownloader(std::uint32_t process,
                                                          std::uint64_t downloader) const {
  const auto found = downloaders_.find({process, downloader});
  return found == downloaders_.end() ? 0 : found->second;
}

TraceOpenRequests::Number TraceOpenRequests::onlyOneOfSession(std::uint32_t process,
                                                              std::int64_t session) const {
  const auto found = sessions_.find({process, session});
  return found == sessions_.end() || found->second.size() != 1 ? 0 : found->second.front();
}

void TraceOpenRequests::close(Number number) {
  auto closed = open_.extract(number).mapped();
  TraceRequest& request = closed.request;
  const auto downloader = downloaders_.find({request.process, closed.downloader});
  if (downloader != downloaders_.end() && downloader->second == number) {
    downloaders_.erase(downloader);
  }
  const auto session = sessions_.find({request.process, request.session});
  if (session != sessions_.end()) {
    std::erase(session->second, number);
    if (session->second.empty()) {
      sessions_.erase(session);
    }
  }
  request.close();
  sink_(std::move(request));
}

void TraceOpenRequests::closeAll() {
  while (!open_.empty()) {
    close(open_.begin()->first);
  }
}

}  // namespace httppool
