#include "yinet/ssh/ssh_transfer.h"

#include <algorithm>
#include <deque>
#include <vector>

namespace yinet {
namespace {

class PipelinedReader {
 public:
  PipelinedReader(const SshConnection& connection, sftp_file_struct* file, const ReadPlan& plan)
      : connection_(connection), file_(file), plan_(plan), piece_(plan.piece), buffer_(plan.piece) {}

  ReadEnd read_to(const std::function<bool(const char*, std::size_t)>& sink) {
    for (;;) {
      if (!fill()) return ReadEnd::refused;
      const Request request = waiting_.front();
      const int count = take_answer();
      if (count < 0) return ReadEnd::refused;
      if (count == 0) return drop_answers() ? ReadEnd::complete : ReadEnd::refused;
      if (!sink(buffer_.data(), static_cast<std::size_t>(count))) return ReadEnd::not_wanted;
      if (static_cast<std::uint32_t>(count) == request.size) {
        most_ = std::min(most_ + 1, plan_.in_flight);
      } else if (!start_anew(request.offset + static_cast<std::uint64_t>(count), static_cast<std::uint32_t>(count))) {
        return ReadEnd::refused;
      }
    }
  }

 private:
  struct Request {
    std::uint32_t id;
    std::uint64_t offset;
    std::uint32_t size;
  };

  // Asks for more until as many requests wait as may; at least one does then.
  bool fill() {
    while (waiting_.size() < most_) {
      const SshCall call(connection_);
      const int id = sftp_async_read_begin(file_, piece_);
      if (id < 0) return false;
      waiting_.push_back({static_cast<std::uint32_t>(id), next_, piece_});
      next_ += piece_;
    }
    return true;
  }

  // The oldest request's bytes into the buffer: their count, 0 at the end of the file, negative on failure.
  int take_answer() {
    const SshCall call(connection_);
    const Request request = waiting_.front();
    waiting_.pop_front();
    return sftp_async_read(file_, buffer_.data(), request.size, request.id);
  }

  // Answers that nobody reads would stay with the session for its life. libssh hands out none behind the end of a file
  // unless it is told to go on elsewhere.
  bool drop_answers() {
    while (!waiting_.empty()) {
      sftp_seek64(file_, next_);
      take_answer();  // a refusal is as good as the end
    }
    return connection_.is_connected();
  }

  bool start_anew(std::uint64_t offset, std::uint32_t piece) {
    if (!drop_answers()) return false;
    sftp_seek64(file_, offset);
    next_ = offset;
    piece_ = piece;
    most_ = 1;
    return true;
  }

  const SshConnection& connection_;
  sftp_file_struct* file_;
  ReadPlan plan_;
  std::uint32_t piece_;
  std::size_t most_ = 1;
  std::uint64_t next_ = 0;  // first byte that was not asked for
  std::deque<Request> waiting_;
  std::vector<char> buffer_;
};

}  // namespace

ReadEnd read_remote_file(const SshConnection& connection, sftp_file_struct* file, const ReadPlan& plan,
                         const std::function<bool(const char*, std::size_t)>& sink) {
  return PipelinedReader(connection, file, plan).read_to(sink);
}

}  // namespace yinet
