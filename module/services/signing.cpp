// Signatures over texts: signString and verifyString, through libsodium.
//
// A signature is Ed25519's 64-byte detached signature over the exact bytes
// of the text in UTF-8, written as base64 (the standard alphabet, with
// padding: 88 characters). The key pair is made on first use and kept in the
// settings under HKEY_CURRENT_USER\Software\Vantry\Signing: "SecretKey" holds
// the 32-byte seed and "PublicKey" the 32-byte public key, each in base64.
// A stored key that does not read is reported, never replaced: a new key
// would orphan every signature made with the old one.
#include <sodium.h>

#include <string>

#include "common/text.h"
#include "frame/implementations.h"
#include "frame/value_list.h"
#include "services/services.h"

namespace vantry::lispfn {
namespace {

using frame::ArgList;
using services::tell;

std::wstring toBase64(const unsigned char *bytes, size_t size) {
  std::string out(sodium_base64_ENCODED_LEN(size, sodium_base64_VARIANT_ORIGINAL), '\0');
  sodium_bin2base64(out.data(), out.size(), bytes, size, sodium_base64_VARIANT_ORIGINAL);
  out.resize(out.size() - 1);  // the closing null
  return text::fromUtf8(out);
}

// Exactly `size` bytes from base64 text with nothing else around it.
bool fromBase64(const std::wstring &text, unsigned char *bytes, size_t size) {
  std::string in;
  for (wchar_t c : text) {
    if (c > 0x7f) return false;
    in += static_cast<char>(c);
  }
  size_t got = 0;
  const char *end = nullptr;
  if (sodium_base642bin(bytes, size, in.data(), in.size(), nullptr, &got, &end, sodium_base64_VARIANT_ORIGINAL) != 0)
    return false;
  return got == size && end == in.data() + in.size();
}

bool ready() {
  if (sodium_init() >= 0) return true;
  tell(L"The signing library could not be started.");
  return false;
}

// The stored key pair, made and stored when there is none. False (with a
// message) when the stored key does not read or a new one cannot be kept.
bool keyPair(unsigned char pk[crypto_sign_PUBLICKEYBYTES], unsigned char sk[crypto_sign_SECRETKEYBYTES]) {
  std::optional<std::wstring> seedText = services::readSetting(services::kSigningKey, L"SecretKey");
  unsigned char seed[crypto_sign_SEEDBYTES];
  if (seedText) {
    bool ok = fromBase64(*seedText, seed, sizeof seed);
    if (ok) crypto_sign_seed_keypair(pk, sk, seed);
    sodium_memzero(seed, sizeof seed);
    if (!ok) tell(L"The signing key in the settings is damaged; nothing was signed.");
    return ok;
  }
  randombytes_buf(seed, sizeof seed);
  crypto_sign_seed_keypair(pk, sk, seed);
  bool stored = services::writeSetting(services::kSigningKey, L"PublicKey", toBase64(pk, crypto_sign_PUBLICKEYBYTES)) &&
                services::writeSetting(services::kSigningKey, L"SecretKey", toBase64(seed, sizeof seed));
  sodium_memzero(seed, sizeof seed);
  if (!stored) tell(L"A signing key could not be kept in the settings; nothing was signed.");
  return stored;
}

}  // namespace

// (signString text): the signature of the text with the user's key, as
// base64; nil with a message when there is no usable key.
int signString() {
  acedRetNil();
  ArgList args;
  resbuf *&cur = args.cursor();
  if (!cur) return 1;
  std::wstring textArg;
  if (!frame::readString(cur, textArg)) return 2;
  if (!ready()) return 0;
  unsigned char pk[crypto_sign_PUBLICKEYBYTES], sk[crypto_sign_SECRETKEYBYTES];
  if (!keyPair(pk, sk)) return 0;
  std::string bytes = text::toUtf8(textArg);
  unsigned char sig[crypto_sign_BYTES];
  crypto_sign_detached(sig, nullptr, reinterpret_cast<const unsigned char *>(bytes.data()), bytes.size(), sk);
  sodium_memzero(sk, sizeof sk);
  std::wstring result = toBase64(sig, sizeof sig);
  acedRetStr(result.c_str());
  return 0;
}

// (verifyString text signature [publicKey]): T when the signature is the
// signature of exactly this text by the key (by default the user's own
// public key from the settings); nil otherwise, a signature that is not 64
// bytes of base64 included. A public key that is not 32 bytes of base64 is
// bad data.
int verifyString() {
  acedRetNil();
  ArgList args;
  resbuf *&cur = args.cursor();
  if (!cur) return 1;
  std::wstring textArg, signature, publicKey;
  if (!frame::readString(cur, textArg)) return 2;
  if (!cur) return 1;
  if (!frame::readString(cur, signature)) return 2;
  bool keyGiven = cur && cur->restype != RTNIL;
  if (keyGiven && !frame::readString(cur, publicKey)) return 2;
  if (!ready()) return 0;
  unsigned char pk[crypto_sign_PUBLICKEYBYTES];
  if (keyGiven) {
    if (!fromBase64(publicKey, pk, sizeof pk)) return 3;
  } else {
    std::optional<std::wstring> stored = services::readSetting(services::kSigningKey, L"PublicKey");
    if (!stored) {
      tell(L"verifyString: there is no public key in the settings; sign a text first or pass the key.");
      return 0;
    }
    if (!fromBase64(*stored, pk, sizeof pk)) {
      tell(L"The public key in the settings is damaged.");
      return 0;
    }
  }
  unsigned char sig[crypto_sign_BYTES];
  if (!fromBase64(signature, sig, sizeof sig)) return 0;
  std::string bytes = text::toUtf8(textArg);
  if (crypto_sign_verify_detached(sig, reinterpret_cast<const unsigned char *>(bytes.data()), bytes.size(), pk) == 0)
    acedRetT();
  return 0;
}

}  // namespace vantry::lispfn
