#pragma once
// A throw-away certificate authority made with the openssl command line in a
// folder of the test's own: the CA, and server certificates (key and chain
// files) that it signs for chosen names and validity, or that sign themselves.
// Nothing is trusted until a test points SSL_CERT_FILE at caFile().
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/Files.h"
#include "support/Process.h"

namespace quillon::test {

class TestCertificates {
public:
    struct Server {
        std::string certificate, key;
    };

    // Makes the CA in `folder` (which must exist and be empty).
    explicit TestCertificates(std::string folder) : folder_(std::move(folder)) {
        std::filesystem::create_directories(path("issued"));
        writeText(path("index.txt"), "");
        writeText(path("serial"), "01\n");
        writeText(path("ca.cnf"), config());
        run({"openssl",
             "req",
             "-x509",
             "-config",
             path("ca.cnf"),
             "-extensions",
             "v3_ca",
             "-newkey",
             "ec",
             "-pkeyopt",
             "ec_paramgen_curve:prime256v1",
             "-nodes",
             "-keyout",
             path("ca.key"),
             "-out",
             path("ca.pem"),
             "-days",
             "2",
             "-subj",
             "/CN=Quillon Test CA"});
    }

    const std::string& folder() const { return folder_; }
    std::string caFile() const { return path("ca.pem"); }

    // A server certificate signed by the CA for `altNames` ("IP:127.0.0.1,
    // DNS:localhost"), valid from now for two days, or between two dates
    // (YYMMDDHHMMSSZ) when they are given.
    Server signedServer(const std::string& name, const std::string& altNames,
                        const std::string& startDate = "", const std::string& endDate = "") {
        writeText(path(name + ".ext"), "basicConstraints = CA:FALSE\nsubjectAltName = " + altNames + "\n");
        run({"openssl", "req", "-new", "-config", path("ca.cnf"), "-newkey", "ec", "-pkeyopt",
             "ec_paramgen_curve:prime256v1", "-nodes", "-keyout", path(name + ".key"), "-out",
             path(name + ".csr"), "-subj", "/CN=" + name});
        std::vector<std::string> sign = {"openssl",  "ca",
                                         "-batch",   "-notext",
                                         "-config",  path("ca.cnf"),
                                         "-name",    "test_ca",
                                         "-cert",    path("ca.pem"),
                                         "-keyfile", path("ca.key"),
                                         "-in",      path(name + ".csr"),
                                         "-out",     path(name + ".pem"),
                                         "-extfile", path(name + ".ext")};
        if (startDate.empty()) {
            sign.insert(sign.end(), {"-days", "2"});
        } else {
            sign.insert(sign.end(), {"-startdate", startDate, "-enddate", endDate});
        }
        run(sign);
        return {path(name + ".pem"), path(name + ".key")};
    }

    // A certificate for 127.0.0.1 that signs itself: no CA vouches for it.
    Server selfSignedServer(const std::string& name) {
        run({"openssl",
             "req",
             "-x509",
             "-config",
             path("ca.cnf"),
             "-newkey",
             "ec",
             "-pkeyopt",
             "ec_paramgen_curve:prime256v1",
             "-nodes",
             "-keyout",
             path(name + ".key"),
             "-out",
             path(name + ".pem"),
             "-days",
             "2",
             "-subj",
             "/CN=" + name,
             "-addext",
             "subjectAltName=IP:127.0.0.1"});
        return {path(name + ".pem"), path(name + ".key")};
    }

private:
    std::string path(const std::string& file) const { return folder_ + "/" + file; }

    static void run(const std::vector<std::string>& argv) {
        ProcessResult result = runProcess(argv);
        ASSERT_EQ(result.status, 0) << argv[0] << " " << argv[1] << ": " << result.err;
    }

    std::string config() const {
        return "[ req ]\ndistinguished_name = dn\nprompt = no\n[ dn ]\nCN = Quillon Test\n"
               "[ v3_ca ]\nbasicConstraints = critical,CA:TRUE\nkeyUsage = critical,keyCertSign,cRLSign\n"
               "subjectKeyIdentifier = hash\n"
               "[ test_ca ]\ndatabase = " +
               path("index.txt") + "\nnew_certs_dir = " + path("issued") + "\nserial = " + path("serial") +
               "\ndefault_md = sha256\npolicy = any\nunique_subject = no\nemail_in_dn = no\n"
               "[ any ]\ncommonName = supplied\n";
    }

    std::string folder_;
};

}  // namespace quillon::test
