// OpenSSL's start, shared by the services that use it.
#pragma once

namespace platform {

/// Makes OpenSSL leave its state alone at the process's exit, when a session's thread may still be
/// using it. To be called before anything else of OpenSSL; later calls do nothing. Any thread.
void OpenSslInitialize();

}  // namespace platform
