// Stores of earlier versions as those versions wrote them, each with something of everything. A new version adds its predecessor.
#pragma once

// Of the time before versions were counted.
inline constexpr char STORE_VERSION_0[] = R"(
CREATE TABLE account(name TEXT PRIMARY KEY, hash TEXT NOT NULL, email TEXT NOT NULL, created INTEGER NOT NULL) WITHOUT ROWID;
INSERT INTO "account" VALUES('ann@velmora.local','$argon2id$v=19$m=8,t=1,p=1$82wB5uGH614F1Ku0CGhqQg$awoKZQ5Q/VR4fyQ8tHpNZo2nydXd3rqqJkgByFFB68o','ann@example.org',13439776620969071);
INSERT INTO "account" VALUES('ben@velmora.local','$argon2id$v=19$m=8,t=1,p=1$HWDnZcPwKhD06kpDPBvHyQ$th9FSbkdPYV2aof/HxykHTqmwzZnqkv2bH5RNFzW36w','',13439776620997968);
CREATE TABLE allocation(host TEXT PRIMARY KEY, address TEXT NOT NULL) WITHOUT ROWID;
CREATE TABLE buddy(id INTEGER PRIMARY KEY, user TEXT NOT NULL, buddy TEXT NOT NULL, UNIQUE(user, buddy));
INSERT INTO "buddy" VALUES(1,'ann@velmora.local','ben@velmora.local');
INSERT INTO "buddy" VALUES(2,'ben@velmora.local','ann@velmora.local');
CREATE TABLE device(device TEXT PRIMARY KEY, given INTEGER NOT NULL) WITHOUT ROWID;
INSERT INTO "device" VALUES('dev1',13000000000000000);
CREATE TABLE logon(address TEXT NOT NULL, user TEXT NOT NULL, time INTEGER NOT NULL, PRIMARY KEY(address, user)) WITHOUT ROWID;
INSERT INTO "logon" VALUES('127.0.0.1','ann@velmora.local',13000000000000000);
CREATE TABLE registration(user TEXT NOT NULL, device TEXT NOT NULL, host TEXT NOT NULL, listener TEXT NOT NULL,
  routes TEXT NOT NULL, version TEXT NOT NULL, expires INTEGER NOT NULL, listed INTEGER NOT NULL, PRIMARY KEY(user, device)) WITHOUT ROWID;
INSERT INTO "registration" VALUES('ann@velmora.local','dev1','127.0.0.1:4000','127.0.0.1:4435','local://127.0.0.1:4000','764',13000001800000000,1);
CREATE TABLE report(id INTEGER PRIMARY KEY, user TEXT NOT NULL, email TEXT NOT NULL, text TEXT NOT NULL, time INTEGER NOT NULL);
INSERT INTO "report" VALUES(1,'ann@velmora.local','ann@example.org','it broke',13000000000000000);
CREATE TABLE value(name TEXT PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID;
)";
// The same, once it was counted.
inline constexpr char STORE_VERSION_1[] = "PRAGMA user_version=1;";

inline constexpr const char* STORE_VERSIONS[][2] = { { STORE_VERSION_0, "" }, { STORE_VERSION_0, STORE_VERSION_1 } };
