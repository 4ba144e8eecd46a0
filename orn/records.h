/* The records that calls and transaction functions fill: plain fields of fixed size, which are part of the contract.
 * Text fields are NUL-terminated; the widths given include the terminator. What a reply does not fill is zero. */
#ifndef ORN_RECORDS_H
#define ORN_RECORDS_H

/* The reply of the transactions that serve or describe a key: 1607 bytes. Fields marked R are filled when a key is
 * retrieved, those marked P when its policy is. Dates have eight characters, "00000000" for none. */
typedef struct KeyRecord {
  char caTranLen[6];         /* R P  the reply's length digits */
  char caTranId[5];          /* R P  transaction identifier */
  char caKeyName[41];        /* R P  */
  char caKeySizeBits[5];     /* R P  decimal */
  char caKeyCreationDate[9]; /* P    */
  char caActivationDate[9];  /* P    */
  char caExpirationDate[9];  /* R P  */
  char caRolloverCode[2];    /* P    "N" for none */
  char caRolloverDays[5];    /* P    decimal */
  char caLastRolledDate[9];  /* R P  */
  char caDeletable[4];       /* P    "Y" or "N" */
  char caRevokedDate[9];     /* P    */
  char caMirrorKey[2];       /* P    "Y" or "N" */
  char caReturnCode[5];      /* R P  */
  char caInstance[25];       /* R P  */
  char caCurrent[2];         /* P    "Y" for the current instance */
  char caKeyFormat[9];       /* R    "BIN" */
  char caKeyValue[396];      /* R    256 bytes as received, then zeros; not text */
  char caPolicyExtra[15];    /* P    the server's own use */
  char md[16][65];           /* P    metadata fields MD01 to MD16 */
} KeyRecord;

/* What drawing the next key of a template gives: 500 bytes. The constant and the lengths and code before the format
 * repeat the request. */
typedef struct NextKeyBlock {
  char caTranId[11];
  char caConstant[40];
  char caIncrementLen[3];
  char caIncrementCode[2];
  char caConstantLen[3];
  char caKeyFormat[45];
  char caLastIncrement[45]; /* the increment served, hexadecimal */
  char caReturnCode[5];
  char caKeyName[41];
  char caInstance[25];
  char caLastRolloverDate[9];
  char caExpirationDate[9];
  char caKeySizeBits[5];
  char caKeyValue[257]; /* 128 bytes as received, then zeros; not text */
} NextKeyBlock;

/* The metadata fields MD01 to MD16 of a key: 1040 bytes, each NUL-terminated, trailing blanks kept. */
typedef struct KeyMetadataValues {
  char md[16][65];
} KeyMetadataValues;

/* What a metadata query tells of a key: 496 bytes, without trailing blanks, tabs and newlines; a field of blanks
 * alone keeps them. */
typedef struct KeyMetadataSummary {
  char caKeyName[41];
  char md[7][65]; /* MD01 to MD07 */
} KeyMetadataSummary;

/* The state of a key template. Increments are hexadecimal. */
typedef struct TemplateDepth {
  char caTranId[5];
  char caTranLen[6];
  char caConstant[40]; /* not filled */
  char caIncrementLen[3];
  char caIncrementCode[2]; /* "H" */
  char caConstantLen[3];   /* not filled */
  char caKeyFormat[4];     /* not filled */
  char caNextIncrement[41];
  char caLastIncrement[41];
  char caKeyServed[2];
  char caTemplateFull[2]; /* "Y" when every increment has been served */
  char caReturnCode[5];
} TemplateDepth;

/* A mirror: each transaction about one fills the fields that it knows. */
typedef struct MirrorRecord {
  char caHostname[257];    /* of its address: without trailing blanks */
  char caPort[6];          /* of its address: decimal */
  char caMirrorName[41];   /* without trailing blanks in its address, as received in its status */
  char caFaultCount[11];   /* decimal */
  char cStatus;            /* the server's own, as the next two */
  char cDataHashStatus;    /* the first character of the detail */
  char caMirrorDetail[45]; /* as received */
  char caQueueSize[11];    /* decimal */
} MirrorRecord;

/* The health of the appliance: 65 bytes. A '1' or '8' in a status or in the temperature stands for a fault. */
typedef struct SystemStatusRecord {
  char caTranId[11];
  char caReturnCode[5];
  char caAppStatus[5];
  char caDiskStatus[9];
  char caCoreStatus[9];
  char caVoltageStatus[9];
  char caBatteryStatus[3];
  char caFanStatus[5];
  char caTemperature[9];
} SystemStatusRecord;

#endif
