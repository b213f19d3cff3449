// A key pair of the fuzz targets' own: the public half, and all that was ever signed. The private half is not
// kept, so a file that verifies holds this very text.

#pragma once

constexpr char kPublicKey[] = "-----BEGIN PUBLIC KEY-----\n"
                              "MIIBIjANBgkqhkiG9w0BAQEFAAOCAQ8AMIIBCgKCAQEAqwK9cyrM/IWQVBeamZeH\n"
                              "nmM7KNtsh5gv392sT079euE4pgoG4cME+YtKsVM30AvpMJYh/DtWw9K2TvOKwFNo\n"
                              "ozGhV389OIO8poQG5UD+/SQA7swkyjt0TKyMqX1MFRrk9p2PU/dlwKaG6+vYfalq\n"
                              "JQL9/kTvZKss15t+s/l9ajUezY9iSggtrqVEaZQ60oG+w8wqncI36ElCeKYV0EH5\n"
                              "/qV5LI4eqnIp2D5Hqt1WdyCp7uZ6OaevsT9oZwdJeeWTOGBSq2ccByDJ7KM3Bgcb\n"
                              "oOlPM5Y6olfKLM02XVFCUh1p4qgbKMe1m15w/5KglCxnHqVVxGy7BAoEC+187O99\n"
                              "KQIDAQAB\n"
                              "-----END PUBLIC KEY-----\n";

constexpr char kSignedText[] = "{ version = 1, hardware = \"RV-20\" }\n";

constexpr char kSignature[] =
    "HYZIc4soyEpwGFpBzf+zVBMBmx5bM8Joj9xIAEn5bIiAyRjquIUydgqGpdHy8RjxRcTxhfSDu4ufBI8fV5AkgE"
    "wG9TGyREs/bzBR2Gtj+65x6qu89EXjYYn5V1xUyn8mNSMrC3OzHOxCmBEHQ6U/EKjNQiIg5u9b787Vd9pC409O"
    "+YUBMq7olUCPposYI6qcd/fxIWgdNxoQkbpXPQfYn25y2UyEN7T0VkTg5lFZk6uUZR3M6i/0ehduSXrgtNr3lR"
    "BO8QGoRYB33I+SrGrxLXe1lIQ/RmW3RgzI7dxmkmFj6RxptSge02MVIYgVmuU0pavRcYxfeElRiv3PCZ1scA==";