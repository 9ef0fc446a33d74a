#pragma once
// A D-Bus message body from fuzz input: a signature the input names, then values of those
// types, only as libdbus accepts them (it aborts on anything else) and the bus could deliver.

#include <cstring>
#include <string>

#include <dbus-c++/dbus.h>
#include <dbus/dbus.h>
#include <fuzzer/FuzzedDataProvider.h>

namespace corvo::fuzz {

// Unix file descriptors ("h") cannot travel in a message built here.
inline dbus_bool_t IsSignature(const char* text, DBusError*) {
  return dbus_signature_validate(text, nullptr) && std::strchr(text, 'h') == nullptr;
}

// Short text from the input when `valid` takes it, else `fallback`.
inline std::string TextOr(FuzzedDataProvider& in, dbus_bool_t (*valid)(const char*, DBusError*),
                          const char* fallback) {
  const std::string text = in.ConsumeRandomLengthString(12);
  return valid(text.c_str(), nullptr) ? std::string(text.c_str()) : fallback;
}

inline void AppendValue(FuzzedDataProvider& in, DBusSignatureIter type, DBus::MessageIter& out,
                        int depth) {
  switch (const int code = dbus_signature_iter_get_current_type(&type)) {
    // clang-format off
    case DBUS_TYPE_BYTE: out.append_byte(in.ConsumeIntegral<std::uint8_t>()); return;
    case DBUS_TYPE_BOOLEAN: out.append_bool(in.ConsumeBool()); return;
    case DBUS_TYPE_INT16: out.append_int16(in.ConsumeIntegral<std::int16_t>()); return;
    case DBUS_TYPE_UINT16: out.append_uint16(in.ConsumeIntegral<std::uint16_t>()); return;
    case DBUS_TYPE_INT32: out.append_int32(in.ConsumeIntegral<std::int32_t>()); return;
    case DBUS_TYPE_UINT32: out.append_uint32(in.ConsumeIntegral<std::uint32_t>()); return;
    case DBUS_TYPE_INT64: out.append_int64(in.ConsumeIntegral<std::int64_t>()); return;
    case DBUS_TYPE_UINT64: out.append_uint64(in.ConsumeIntegral<std::uint64_t>()); return;
    case DBUS_TYPE_DOUBLE: out.append_double(in.ConsumeFloatingPoint<double>()); return;
    case DBUS_TYPE_STRING: out.append_string(TextOr(in, dbus_validate_utf8, "").c_str()); return;
    case DBUS_TYPE_OBJECT_PATH: out.append_path(TextOr(in, dbus_validate_path, "/").c_str()); return;
    case DBUS_TYPE_SIGNATURE: out.append_signature(TextOr(in, IsSignature, "").c_str()); return;
    // clang-format on
    case DBUS_TYPE_VARIANT: {
      // At most 12 characters, four variants deep: 55 levels of containers, where 64 may be.
      std::string held = TextOr(in, dbus_signature_validate_single, "y");
      if (depth >= 4 || !IsSignature(held.c_str(), nullptr)) held = "y";
      DBus::MessageIter variant = out.new_variant(held.c_str());
      DBusSignatureIter inner;
      dbus_signature_iter_init(&inner, held.c_str());
      AppendValue(in, inner, variant, depth + 1);
      out.close_container(variant);
      return;
    }
    case DBUS_TYPE_ARRAY: {
      DBusSignatureIter element;
      dbus_signature_iter_recurse(&type, &element);
      char* signature = dbus_signature_iter_get_signature(&element);
      DBus::MessageIter array = out.new_array(signature);
      dbus_free(signature);
      for (int n = in.ConsumeIntegralInRange(0, 4); n > 0; --n)
        AppendValue(in, element, array, depth);
      out.close_container(array);
      return;
    }
    default: {  // a struct or a dictionary entry
      DBus::MessageIter members =
          code == DBUS_TYPE_STRUCT ? out.new_struct() : out.new_dict_entry();
      DBusSignatureIter member;
      dbus_signature_iter_recurse(&type, &member);
      do AppendValue(in, member, members, depth);
      while (dbus_signature_iter_next(&member));
      out.close_container(members);
    }
  }
}

// The body goes into a method call: the readers look at nothing but the body.
inline DBus::CallMessage MessageBody(FuzzedDataProvider& in) {
  DBus::CallMessage message;
  const std::string signature = TextOr(in, IsSignature, "");
  DBus::MessageIter out = message.writer();
  DBusSignatureIter type;
  dbus_signature_iter_init(&type, signature.c_str());
  if (!signature.empty()) {
    do AppendValue(in, type, out, 0);
    while (dbus_signature_iter_next(&type));
  }
  return message;
}

}  // namespace corvo::fuzz
