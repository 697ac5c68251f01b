// Builds a form from the input and sends it as a browser would, first as multipart and then
// URL-encoded: the script must get back what the user entered.
#include "request.h"

using namespace tarn_fuzz;

namespace {

struct Field {
  std::string name;
  std::string value;
  std::string fileName;  // empty unless the field is a file
  std::string type;
};

std::string without(std::string_view bytes, std::initializer_list<std::string_view> unwanted) {
  std::string text(bytes);
  // Start over after each removal: it may join two halves of another unwanted string.
  for (const std::string_view *one = unwanted.begin(); one != unwanted.end();) {
    const size_t at = text.find(*one);
    if (at != std::string::npos) text.erase(at, one->size());
    one = at == std::string::npos ? one + 1 : unwanted.begin();
  }
  return text;
}

constexpr std::string_view kZero("\0", 1);

// Every boundary begins with this.
const std::string kBoundary = "----form";

// Keeps only what may appear between quotes, or after a colon, in the header of a part.
std::string word(std::string_view bytes, const std::string &boundary) {
  return without(bytes, {"\"", "\r", "\n", kZero, "Content-Type: ", "filename=", boundary});
}

// A value ends at its first line end and must not look like a part's header or a boundary.
std::string valueOf(std::string_view bytes, const std::string &boundary) {
  return without(bytes, {"\r\n", "name=\"", boundary});
}

std::string percentEncoded(std::string_view text) {
  std::string result;
  for (const char c : text) {
    if (c == ' ') {
      result += '+';
    } else if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) {
      result += c;
    } else {
      char encoded[4];
      std::snprintf(encoded, sizeof encoded, "%%%02x", static_cast<unsigned char>(c));
      result += encoded;
    }
  }
  return result;
}

std::vector<Field> fieldsIn(Input &input, const std::string &boundary) {
  std::vector<Field> fields;
  while (!input.empty()) {
    const uint8_t kind = input.byte();
    Field field;
    field.name = word(input.piece(), boundary);
    field.value = valueOf(input.piece(), boundary);
    if (kind % 2 == 1) {
      field.fileName = word(input.piece(), boundary);
      field.type = word(input.piece(), boundary);
    }
    fields.push_back(field);
  }
  return fields;
}

std::string multipartOf(const std::vector<Field> &fields, const std::string &boundary) {
  std::string body;
  for (const Field &field : fields) {
    body += "--" + boundary + "\r\nContent-Disposition: form-data; name=\"" + field.name + "\"";
    if (!field.fileName.empty()) {
      body +=
          "; filename=\"" + percentEncoded(field.fileName) + "\"\r\nContent-Type: " + field.type;
    }
    body += "\r\n\r\n" + field.value + "\r\n";
  }
  return body + "--" + boundary + "--\r\n";
}

Text unlessEmpty(const std::string &text) { return text.empty() ? std::nullopt : Text(text); }

Form sentAsMultipart(const std::vector<Field> &fields) {
  Form form;
  for (const Field &field : fields) {
    const auto length = static_cast<uint32_t>(field.value.size());
    const bool isWhole = !field.name.empty() && !field.type.empty();
    if (field.fileName.empty()) {
      form.entries.push_back({unlessEmpty(field.name), std::string(asText(field.value)), length});
    } else if (isWhole) {
      form.files.push_back({field.name, field.fileName, field.type, field.value});
    } else {
      form.files.push_back({});
    }
  }
  return form;
}

std::string urlEncodedOf(const std::vector<Field> &fields) {
  std::string query;
  for (const Field &field : fields) {
    query += "&" + percentEncoded(field.name) + "=" + percentEncoded(field.value);
  }
  return query;
}

Form sentAsText(const std::vector<Field> &fields) {
  Form form;
  for (const Field &field : fields) {
    const std::string text(asText(field.value));
    form.entries.push_back({field.name, text, static_cast<uint32_t>(text.size())});
  }
  return form;
}

}  // namespace

void fuzz(Input input) {
  const std::string boundary = kBoundary + word(input.piece(), kBoundary);
  const std::vector<Field> fields = fieldsIn(input, boundary);
  const std::string body = multipartOf(fields, boundary);
  {
    Script script({{"REQUEST_METHOD", "POST"},
                   {"CONTENT_LENGTH", std::to_string(body.size())},
                   {"CONTENT_TYPE", "Multipart/Form-Data; charset=utf-8; boundary=" + boundary}},
                  body);
    Request request;
    EXPECT(request.status() == TARN_OK);
    expectForm(request, sentAsMultipart(fields));
  }
  Script script({{"QUERY_STRING", urlEncodedOf(fields)}}, "");
  Request request;
  EXPECT(request.status() == TARN_OK);
  expectForm(request, sentAsText(fields));
}
