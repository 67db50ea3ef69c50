// A program is started in a job, so that it can be ended with all that it has started, and is given
// its three standard handles only. Its command line is quoted as the C library of most programs
// takes it apart. Command files are refused: the shell that runs them takes the line apart by other
// rules, and what arguments hold would become commands.
#include "platform/Program.h"

#include <algorithm>
#include <cerrno>
#include <memory>

#include "platform/ErrorNumbers.h"
#include "platform/OutputFile.h"
#include "platform/windows/System.h"
#include "support/Text.h"

namespace netro {
namespace {

// Backslashes stand for themselves but before a quotation mark.
std::wstring Quoted(const std::wstring& argument) {
  std::wstring quoted = L"\"";
  std::size_t backslashes = 0;
  for (const wchar_t c : argument) {
    if (c == L'"') quoted.append(backslashes + 1, L'\\');
    backslashes = c == L'\\' ? backslashes + 1 : 0;
    quoted += c;
  }
  return quoted.append(backslashes, L'\\') + L'"';
}

/// The whole path of a program; empty when there is none.
std::wstring FindProgram(const std::string& program) {
  const std::wstring name = Widen(program);
  std::wstring places;
  if (name.find_first_of(L"/\\:") == std::wstring::npos) {
    places.resize(GetEnvironmentVariableW(L"PATH", nullptr, 0));
    if (places.empty()) return {};
    places.resize(
        GetEnvironmentVariableW(L"PATH", places.data(), static_cast<DWORD>(places.size())));
  }
  // Without places the name itself says where.
  wchar_t found[32'768];
  const DWORD length = SearchPathW(places.empty() ? L"." : places.c_str(), name.c_str(), L".exe",
                                   static_cast<DWORD>(std::size(found)), found, nullptr);
  return length < std::size(found) ? std::wstring(found, length) : std::wstring();
}

bool IsCommandFile(const std::wstring& path) {
  const std::string name = ToLower(Narrow(path));
  return name.ends_with(".bat") || name.ends_with(".cmd");
}

SECURITY_ATTRIBUTES Inherited() { return {sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE}; }

Handle OpenNothing() {
  SECURITY_ATTRIBUTES inherited = Inherited();
  return Handle(CreateFileW(L"NUL", GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited,
                            OPEN_EXISTING, 0, nullptr));
}

/// A file that goes when nobody has it open any more.
Handle OpenInput(std::string_view input) {
  OutputFile unique;
  if (unique.CreateTemporary("netro-input-", "tmp") != 0 || unique.Finish() != 0) return Handle();
  SECURITY_ATTRIBUTES inherited = Inherited();
  Handle file(CreateFileW(Widen(unique.Path()).c_str(), GENERIC_READ | GENERIC_WRITE | DELETE,
                          FILE_SHARE_READ | FILE_SHARE_DELETE, &inherited, OPEN_EXISTING,
                          FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr));
  DWORD written = 0;
  if (!file.IsOpen() || WriteFile(file.Get(), input.data(), static_cast<DWORD>(input.size()),
                                  &written, nullptr) == 0) {
    return Handle();
  }
  SetFilePointer(file.Get(), 0, nullptr, FILE_BEGIN);
  return file;
}

/// The list of the handles that a program inherits.
class HandleList {
 public:
  explicit HandleList(std::vector<HANDLE> handles) : handles_(std::move(handles)) {
    SIZE_T size = 0;
    InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
    room_.resize(size);
    made_ = InitializeProcThreadAttributeList(Get(), 1, 0, &size) != 0 &&
            UpdateProcThreadAttribute(Get(), 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, handles_.data(),
                                      handles_.size() * sizeof(HANDLE), nullptr, nullptr) != 0;
  }
  ~HandleList() {
    if (made_) DeleteProcThreadAttributeList(Get());
  }
  HandleList(const HandleList&) = delete;
  HandleList& operator=(const HandleList&) = delete;

  bool IsMade() const { return made_; }
  LPPROC_THREAD_ATTRIBUTE_LIST Get() {
    return reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(room_.data());
  }

 private:
  std::vector<HANDLE> handles_;
  std::vector<char> room_;
  bool made_ = false;
};

int Launch(const std::wstring& path, std::wstring line, std::string_view input, Handle& process,
           Handle& job) {
  const Handle in = OpenInput(input);
  const Handle out = OpenNothing();
  HandleList list({in.Get(), out.Get()});
  if (!in.IsOpen() || !out.IsOpen() || !list.IsMade()) return LastFileError();
  STARTUPINFOEXW start{};
  start.StartupInfo.cb = sizeof start;
  start.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
  start.StartupInfo.hStdInput = in.Get();
  start.StartupInfo.hStdOutput = start.StartupInfo.hStdError = out.Get();
  start.lpAttributeList = list.Get();
  constexpr DWORD kFlags = CREATE_SUSPENDED | CREATE_NO_WINDOW | CREATE_NEW_PROCESS_GROUP |
                           CREATE_UNICODE_ENVIRONMENT | EXTENDED_STARTUPINFO_PRESENT;
  PROCESS_INFORMATION made{};
  if (CreateProcessW(path.c_str(), line.data(), nullptr, nullptr, TRUE, kFlags, nullptr, nullptr,
                     &start.StartupInfo, &made) == 0) {
    return LastFileError();
  }
  process = Handle(made.hProcess);
  const Handle thread(made.hThread);
  // Where there is no job, the program itself can be ended all the same.
  job = Handle(CreateJobObjectW(nullptr, nullptr));
  if (!job.IsOpen() || AssignProcessToJobObject(job.Get(), process.Get()) == 0) job.Close();
  ResumeThread(thread.Get());
  return 0;
}

int StartInJob(const std::string& program, const std::vector<std::string>& arguments,
               std::string_view input, Handle& process, Handle& job) {
  const auto hasNul = [](const std::string& text) { return text.find('\0') != text.npos; };
  if (std::ranges::any_of(arguments, hasNul)) return EINVAL;
  if (program.empty() || hasNul(program)) return ENOENT;
  const std::wstring path = FindProgram(program);
  if (path.empty()) return ENOENT;
  if (IsCommandFile(path)) return ENOEXEC;
  std::wstring line = Quoted(Widen(program));
  for (const std::string& argument : arguments) line += L' ' + Quoted(Widen(argument));
  return Launch(path, std::move(line), input, process, job);
}

}  // namespace

RunningProgram::~RunningProgram() {
  if (id_ != 0) CloseHandle(ToHandle(id_));
  if (handle_ != -1) CloseHandle(ToHandle(handle_));
}

std::int32_t RunningProgram::Start(const std::string& program,
                                   const std::vector<std::string>& arguments,
                                   std::string_view input) {
  Handle process;
  Handle job;
  const int error = StartInJob(program, arguments, input, process, job);
  if (error != 0) return FileErrorNumber(error);
  id_ = ToNumber(process.Release());
  handle_ = ToNumber(job.Release());
  return 0;
}

bool RunningProgram::HasEnded() {
  return id_ == 0 || WaitForSingleObject(ToHandle(id_), 0) == WAIT_OBJECT_0;
}

void RunningProgram::Kill() {
  if (HasEnded()) return;
  constexpr UINT kKilled = 137;
  if (handle_ == -1 || TerminateJobObject(ToHandle(handle_), kKilled) == 0) {
    TerminateProcess(ToHandle(id_), kKilled);
  }
}

std::int32_t StartProgram(const std::string& program, const std::vector<std::string>& arguments,
                          std::string_view input) {
  return RunningProgram().Start(program, arguments, input);
}

}  // namespace netro
