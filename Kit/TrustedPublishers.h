#pragma once

#include "Tests/Support/Kit.h"
#include "Tests/Support/UpdateAnswers.h"

#include <windows.h>

#include <wincrypt.h>

namespace Tests
{
/// Adds the throw-away certificates of the samples' publishers to the machine's trusted roots, or removes
/// them whoever added them. The user's own store would ask at a message box each time; and whoever runs the
/// tests that need this is an administrator anyway.
inline void TrustPublishers(bool trust)
{
    // The registry's part of the store alone: of the whole one, Wine doesn't delete for good.
    const HCERTSTORE store =
        ::CertOpenStore(CERT_STORE_PROV_SYSTEM_REGISTRY_W, 0, 0, CERT_SYSTEM_STORE_LOCAL_MACHINE, L"Root");
    for (const auto& entry : std::filesystem::directory_iterator(InKit(L"Samples")))
    {
        if (entry.path().extension() != L".cer")
            continue;
        const auto bytes = ReadWholeFile(entry.path().wstring());
        const PCCERT_CONTEXT own =
            ::CertCreateCertificateContext(X509_ASN_ENCODING, reinterpret_cast<const BYTE*>(bytes->data()),
                                           static_cast<DWORD>(bytes->size()));
        if (trust)
            ::CertAddCertificateContextToStore(store, own, CERT_STORE_ADD_REPLACE_EXISTING, nullptr);
        else if (const PCCERT_CONTEXT found = ::CertFindCertificateInStore(store, X509_ASN_ENCODING, 0,
                                                                           CERT_FIND_EXISTING, own, nullptr))
            ::CertDeleteCertificateFromStore(found); // which frees it
        ::CertFreeCertificateContext(own);
    }
    ::CertCloseStore(store, 0);
}

/// The publishers of the samples are trusted in a scope.
struct CTrustedPublishers
{
    CTrustedPublishers() { TrustPublishers(true); }
    CTrustedPublishers(const CTrustedPublishers&) = delete;
    ~CTrustedPublishers() { TrustPublishers(false); }
};
} // namespace Tests
