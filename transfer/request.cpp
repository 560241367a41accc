#include "transfer/request.h"

#include "support/text.h"

namespace Tarnlo {

std::wstring MakeRangeLine(std::int64_t start, std::int64_t length, std::int64_t received) {
  std::wstring line = L"Range: bytes=" + NumberToWide(start + received) + L"-";
  if (length > 0) line += NumberToWide(start + (length - 1));
  return line + L"\r\n";
}

std::wstring MakeBasicAuthHeader(const std::wstring& encoded) {
  return L"Authorization: Basic " + encoded;
}

std::wstring BuildRequest(const RequestFields& fields, std::wstring_view range_line) {
  std::wstring text = L"GET " + fields.object + L" HTTP/1.1\r\n";
  if (!fields.credentials.empty()) text += MakeBasicAuthHeader(fields.credentials) + L"\r\n";
  text += L"Accept: */*\r\n";
  text += L"Referer: " + fields.referer + L"\r\n";
  text += L"User-Agent: " + fields.user_agent + L"\r\n";
  text += L"Host: " + fields.host;
  if (fields.port != 80) text += L":" + NumberToWide(fields.port);
  text += L"\r\n";
  text += L"Connection: Close\r\n";
  if (!fields.cookie.empty()) text += L"Cookie: " + fields.cookie + L"\r\n";
  text += range_line;
  text += L"\r\n";
  return text;
}

}  // namespace Tarnlo
