#ifndef VELLUMENT_FILING_SERVICE_CERTIFICATE_H
#define VELLUMENT_FILING_SERVICE_CERTIFICATE_H

#include <string>

namespace fs_cert {

// Makes sure that the data directory holds a certificate and key for the service
// (service-cert.pem, service-key.pem): a self-signed certificate for localhost, 127.0.0.1 and ::1
// is made on first use and kept, so that a client that pins it keeps trusting it. Sets the paths;
// throws std::runtime_error when they can't be made.
void ensure_self_signed(const std::string& directory, std::string& cert_path, std::string& key_path);

} // namespace fs_cert

#endif
