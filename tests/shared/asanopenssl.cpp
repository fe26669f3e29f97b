// SPDX-License-Identifier: MIT
// Linked into the tool when it is built with the address sanitizer. OpenSSL holds a little memory
// for each thread, and frees it when the thread ends. A thread of Qt's counts as finished just
// before that, so a program may come to its own end in between; OpenSSL has then given up its list
// of such memory, and the sanitizer calls it lost. Without OpenSSL's cleaning up it stays in the
// list. What our code loses is lost all the same, and still found.
#include <openssl/crypto.h>

namespace {

[[maybe_unused]] const int isLeftAlone = OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);

} // namespace
