// certkern name: distinguished names from text to their encoding and back.
#include "command.h"
#include "decoded.h"
#include "encoded.h"
#include "failure.h"
#include "input.h"
#include "name_fields.h"
#include "output.h"
#include "shape.h"
#include "subject.h"
#include "text.h"

#include <certkern/errors.h>
#include <certkern/name.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <memory>

namespace certkern::cli {
namespace {

struct NameArguments {
  std::vector<std::string> names;
  bool oid = false;
  bool reverse = false;
  bool json = false;

  DWORD stringType() const {
    const DWORD form = oid ? CERT_OID_NAME_STR : CERT_X500_NAME_STR;
    return reverse ? form | CERT_NAME_STR_REVERSE_FLAG : form;
  }
};

std::string Shown(const std::string& argument) { return Escaped(Utf8Of(std::string_view(argument))); }

// What a value must be, or what the whole must be, where the text is wrong.
std::string ExpectedBy(DWORD code) {
  switch (code) {
    case CRYPT_E_INVALID_X500_STRING:
      return "TYPE=VALUE with a type that is known, a value, and its quotes closed";
    case CRYPT_E_INVALID_PRINTABLE_STRING:
      return "ASCII letters, blanks and '()+,-./:=? (digits are not taken in this type)";
    case CRYPT_E_INVALID_NUMERIC_STRING:
      return "digits and blanks";
    case CRYPT_E_INVALID_IA5_STRING:
      return "ASCII characters";
    default:
      return {};
  }
}

[[noreturn]] void ThrowAt(const std::string& argument, std::wstring_view text, size_t position, DWORD code) {
  const std::string found =
      position == text.size() ? "the end" : fmt::format("\"{}\"", Escaped(Utf8Of(text.substr(position))));
  throw Failure(fmt::format("{}: expected {}, found {} at character {}", Shown(argument), ExpectedBy(code),
                            found, position + 1));
}

Bytes EncodeName(const std::string& argument, DWORD stringType) {
  const std::wstring text = Wide(argument, Shown(argument));
  LPCWSTR error = nullptr;
  Bytes encoded;
  const auto ask = [&](BYTE* out, DWORD* size) {
    return CertStrToNameW(X509_ASN_ENCODING, text.c_str(), stringType, nullptr, out, size, &error);
  };
  if (AskBytes(ask, encoded)) return encoded;
  if (!error) ThrowLastError(Shown(argument));
  ThrowAt(argument, text, static_cast<size_t>(error - text.c_str()), GetLastError());
}

Field EncodedField(const std::string& argument, const Bytes& encoded) {
  Field field("Name");
  field.add("Text", Text{Utf8Of(std::string_view(argument))});
  field.add("Encoded", encoded);
  return field;
}

// An encoded name begins with the octet 30; a file whose name looks like one goes with a "./" before it.
bool IsHexadecimal(const std::string& argument) {
  return argument.starts_with("30") && argument.size() % 2 == 0
      && argument.find_first_not_of("0123456789ABCDEFabcdef") == argument.npos;
}

Bytes ReadName(const std::string& argument) {
  if (!IsHexadecimal(argument)) {
    const FileContent content = ReadInput(argument);
    if (!content.error.empty()) throw Failure(fmt::format("{}: {}", Shown(argument), content.error));
    return content.bytes;
  }
  Bytes bytes;
  for (size_t i = 0; i < argument.size(); i += 2)
    bytes.push_back(static_cast<BYTE>(std::stoul(argument.substr(i, 2), nullptr, 16)));
  return bytes;
}

// The library writes an empty text for what is no name, which would pass for a name that is empty.
void CheckName(const std::string& argument, std::span<const BYTE> encoded) {
  const std::optional<size_t> size = ElementSize(encoded);
  if (!size)
    throw Failure(
        fmt::format("{}: expected a whole name, found its end at byte {}", Shown(argument), encoded.size()));
  if (*size != encoded.size())
    throw Failure(fmt::format("{}: expected the end, found {} more bytes at byte offset {}", Shown(argument),
                              encoded.size() - *size, *size));
  if (!Decode<CERT_NAME_INFO>(X509_UNICODE_NAME, encoded))
    throw Failure(fmt::format("{}: expected a name, found a refusal with code 0x{:08x}", Shown(argument),
                              GetLastError()));
}

std::string NameText(const Bytes& encoded, DWORD stringType) {
  CERT_NAME_BLOB blob = BlobOf(encoded);
  std::wstring text(CertNameToStrW(X509_ASN_ENCODING, &blob, stringType, nullptr, 0), L'\0');
  CertNameToStrW(X509_ASN_ENCODING, &blob, stringType, text.data(), CheckedSize(text.size()));
  text.pop_back();
  return Utf8Of(std::wstring_view(text));
}

Field DecodedField(const Bytes& encoded, const std::string& text) {
  Field field("Name");
  field.add("Text", Text{text});
  field.add(NameField("Name", encoded));
  field.add("Encoded", encoded);
  return field;
}

// One name after the other; a fault in one does not keep the others.
template <typename Convert>
int ForEachName(const NameArguments& arguments, const Convert& convert) {
  std::vector<Field> objects;
  bool sound = true;
  for (const std::string& argument : arguments.names) {
    try {
      convert(argument, objects);
    } catch (const Failure& failure) {
      Complain("{}", failure.what());
      sound = false;
    }
  }
  if (arguments.json) PrintObjects(objects, true);
  return FlushOutput() && sound ? 0 : kFailed;
}

int RunEncode(const NameArguments& arguments) {
  return ForEachName(arguments, [&](const std::string& argument, std::vector<Field>& objects) {
    const Bytes encoded = EncodeName(argument, arguments.stringType());
    if (!arguments.json) return fmt::print("{}\n", HexText(encoded));
    objects.push_back(EncodedField(argument, encoded));
  });
}

int RunDecode(const NameArguments& arguments) {
  return ForEachName(arguments, [&](const std::string& argument, std::vector<Field>& objects) {
    const Bytes encoded = ReadName(argument);
    CheckName(argument, encoded);
    const std::string text = NameText(encoded, arguments.stringType());
    if (!arguments.json) return fmt::print("{}\n", Escaped(text));
    objects.push_back(DecodedField(encoded, text));
  });
}

void AddCommonOptions(CLI::App& command, NameArguments& arguments) {
  command.add_flag("--reverse", arguments.reverse, "The text begins with the last relative name");
  command.add_flag("--json", arguments.json, "Write JSON: an array with one object for each name");
}

Runner PrepareEncode(CLI::App& command) {
  const auto arguments = std::make_shared<NameArguments>();
  command.add_option("TEXT", arguments->names, "Names, as in \"C=RU, O=Example, CN=Anna\"")
      ->required()
      ->type_name("");
  AddCommonOptions(command, *arguments);
  command.footer(
      "A type is CN, O, OU, C, L, ST, E ... or a dotted identifier. A value with , ; or + in it stands in\n"
      "quotes, in which a quote is doubled; one that begins with # is hexadecimal.\n"
      "Each name becomes a line of hexadecimal digits.\n\n"
      "Example:\n"
      "  certkern name encode 'O=\"Horns, Hoofs\", CN=Anna' | xxd -r -p >name.der");
  return [arguments] { return RunEncode(*arguments); };
}

Runner PrepareDecode(CLI::App& command) {
  const auto arguments = std::make_shared<NameArguments>();
  command.add_option("NAME", arguments->names, "Encoded names in hexadecimal, or files; - is standard input")
      ->required()
      ->type_name("");
  command.add_flag("--oid", arguments->oid, "Identifiers instead of the names of types");
  AddCommonOptions(command, *arguments);
  return [arguments] { return RunDecode(*arguments); };
}

constexpr Command kCommands[] = {
    {"encode", "Encode names that are given as text", PrepareEncode},
    {"decode", "Write encoded names as text",         PrepareDecode},
};

}  // namespace

Runner PrepareName(CLI::App& group) { return PrepareGroup(group, kCommands); }

}  // namespace certkern::cli
