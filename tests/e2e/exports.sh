#!/bin/sh
# The server exports the functions that plug-ins call, the members of OstrelValue and the three lock-line integers;
# the store exports its one class. Nothing more, nothing less.
set -eu
expected=$(mktemp) found=$(mktemp)
trap 'rm -f "$expected" "$found"' EXIT

cat >"$expected" <<'LIST'
Die
ostrelExecute
ostrelPrintLine
ostrelSetPrintLevel
ostrelShowPrefix
ostrelStringToOwner
ostrelWriteFile
TimeMark
_Z7OpenLogPc
OstrelValues_Create
OstrelValues_Destroy
OstrelValues_Add_Bool
OstrelValues_Add_Byte
OstrelValues_Add_Dword
OstrelValues_Add_IP
OstrelValues_Add_MAC
OstrelValues_Add_String
_OstrelValues_Add_StringTyped
_ZN11OstrelValue7setNameEPKc
_ZN11OstrelValue7setTypeE15ostrelValueType
_ZN11OstrelValue8setValueEjPh
_ZN11OstrelValue11setTpltNameEPKc
_ZN11OstrelValueC1Ev
_ZN11OstrelValueC2Ev
_ZN11OstrelValueC1EPKcPhj15ostrelValueTypejj
_ZN11OstrelValueC2EPKcPhj15ostrelValueTypejj
_ZN11OstrelValueD1Ev
_ZN11OstrelValueD2Ev
OstrelClientGetVectorSize
OstrelClientGetPrimaryKeys
_Z19OstrelClientGetTypePKcjP15ostrelValueType
OstrelClientReadValue
_Z29OstrelClientReadValueWithPKeyPKcjPjPh
_Z22OstrelClientDumpValuesP12OstrelValues
OstrelClientReadValue_Bool
OstrelClientReadValue_Byte
OstrelClientReadValue_Dword
OstrelClientReadValue_IP
OstrelClientReadValue_MAC
OstrelClientReadValue_String
OstrelClientReadVectorElement_Bool
OstrelClientReadVectorElement_Byte
OstrelClientReadVectorElement_Dword
OstrelClientReadVectorElement_IP
OstrelClientReadVectorElement_MAC
OstrelClientReadVectorElement_String
OstrelClientWriteValues
OstrelClientWriteVectorElements
OstrelClientWriteVectorElement
OstrelClientWriteValue
OstrelClientDeinstanciate
OstrelClientDeinstanciateOwner
ostrelClientInstanciateStructure
nbLockLine
oldLockLine
newLockLine
LIST

# What a sanitizer puts there is not ours.
nm -D --defined-only "$1" | awk '{print $3}' | sed 's/@.*//' |
    grep -vE '^(__asan|__tsan|__ubsan|__lsan|__sanitizer|__odr_asan)' |
    sort >"$found"
sort -o "$expected" "$expected"
diff "$expected" "$found"

nm -D --defined-only "$2" | awk '{print $3}' | grep -vE '^_ZN(K)?8ostrelDb|^__(asan|odr_asan)' >"$found" || :
if [ -s "$found" ]; then
    echo "the store exports:"
    cat "$found"
    exit 1
fi
