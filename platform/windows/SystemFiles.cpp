#include "platform/SystemFiles.h"

#include "platform/windows/System.h"

namespace netro {

std::string OwnSystemRoot() {
  wchar_t folder[MAX_PATH];
  const UINT length = GetSystemDirectoryW(folder, MAX_PATH);
  return Narrow({folder, length < MAX_PATH ? length : 0}) + "\\drivers";
}

}  // namespace netro
