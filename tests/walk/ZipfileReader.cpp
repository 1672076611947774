#include "walk/ZipfileReader.h"

#include <cstdlib>
#include <sstream>

#include <unistd.h>

namespace walk {
namespace {

const char* const kScript = R"(
import io, struct, sys, zipfile
for line in sys.stdin:
    try:
        data = open(line[:-1], 'rb').read()
        end = data.rfind(b'PK\5\6')
        size, offset = struct.unpack('<LL', data[end + 12:end + 20])
        fixed = data[:end + 12] + struct.pack('<L', end - offset) + data[end + 16:]
        with zipfile.ZipFile(io.BytesIO(fixed)) as z:
            words = ['%d' % size, '[' + z.comment.decode() + ']']
            for i in z.infolist():
                words.append('%s %d %d %s' % (i.filename, i.compress_type, i.compress_size, z.read(i).hex()))
        print(' | '.join(words))
    except Exception as e:
        print('ERROR %s %s' % (type(e).__name__, e))
)";

}  // namespace

ZipfileReader::ZipfileReader() {
  int in[2], out[2];
  if (pipe(in) != 0 || pipe(out) != 0) std::abort();
  if (fork() == 0) {
    dup2(in[0], 0);
    dup2(out[1], 1);
    for (const int end : {in[0], in[1], out[0], out[1]})
      ::close(end);
    execlp("python3", "python3", "-u", "-c", kScript, static_cast<char*>(nullptr));
    _exit(127);
  }
  ::close(in[0]);
  ::close(out[1]);
  fRequests = fdopen(in[1], "w");
  fAnswers = fdopen(out[0], "r");
}

ZipfileReader::~ZipfileReader() {
  std::fclose(fRequests);
  std::fclose(fAnswers);
}

std::string ZipfileReader::describe(const std::string& path) {
  std::fprintf(fRequests, "%s\n", path.c_str());
  std::fflush(fRequests);
  std::string line;
  for (int c; (c = std::fgetc(fAnswers)) != EOF && c != '\n';)
    line += static_cast<char>(c);
  return line;
}

std::string describe(const PackageModel::Saved& saved) {
  std::ostringstream text;
  text << saved.directorySize << " | [" << saved.comment << "]";
  for (const Record& record : saved.records) {
    text << " | " << record.name << " " << (record.stored ? 0 : 8) << " " << record.compressed
         << " ";
    for (const char c : record.data) {
      char digits[3];
      std::snprintf(digits, sizeof digits, "%02x",
                    static_cast<unsigned>(static_cast<unsigned char>(c)));
      text << digits;
    }
  }
  return text.str();
}

}  // namespace walk
