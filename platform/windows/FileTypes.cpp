#include "platform/FileTypes.h"

#include "platform/windows/System.h"

namespace netro {

std::string RegisteredContentType(std::string_view extension) {
  // Where programs can be asked for, the registry's paths can too.
  if (extension.empty() || extension.find_first_of(std::string_view("\\\0", 2)) != extension.npos) {
    return {};
  }
  wchar_t type[256];
  DWORD size = sizeof type;
  const LSTATUS status = RegGetValueW(HKEY_CLASSES_ROOT, (L'.' + Widen(extension)).c_str(),
                                      L"Content Type", RRF_RT_REG_SZ, nullptr, type, &size);
  return status == ERROR_SUCCESS ? Narrow(type) : std::string();
}

}  // namespace netro
