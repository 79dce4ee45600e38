#!/bin/sh
# The server exports the functions that plug-ins call, the members of OstrelValue and the three lock-line integers;
# the store exports its one class. Nothing more, nothing less.
set -eu
expected=$(mktemp) found=$(mktemp)
trap 'rm -f "$expected" "$found"' EXIT

tr ' ' '\n' <<'LIST' | sort >"$expected"
Die ostrelExecute ostrelPrintLine ostrelSetPrintLevel ostrelShowPrefix ostrelStringToOwner ostrelWriteFile
TimeMark _Z7OpenLogPc nbLockLine oldLockLine newLockLine
OstrelValues_Create OstrelValues_Destroy OstrelValues_Add_Bool OstrelValues_Add_Byte OstrelValues_Add_Dword
OstrelValues_Add_IP OstrelValues_Add_MAC OstrelValues_Add_String _OstrelValues_Add_StringTyped
_ZN11OstrelValue7setNameEPKc _ZN11OstrelValue7setTypeE15ostrelValueType _ZN11OstrelValue8setValueEjPh
_ZN11OstrelValue11setTpltNameEPKc _ZN11OstrelValueC1Ev _ZN11OstrelValueC2Ev
_ZN11OstrelValueC1EPKcPhj15ostrelValueTypejj _ZN11OstrelValueC2EPKcPhj15ostrelValueTypejj
_ZN11OstrelValueD1Ev _ZN11OstrelValueD2Ev
OstrelClientGetVectorSize OstrelClientGetPrimaryKeys _Z19OstrelClientGetTypePKcjP15ostrelValueType
OstrelClientReadValue _Z29OstrelClientReadValueWithPKeyPKcjPjPh _Z22OstrelClientDumpValuesP12OstrelValues
OstrelClientReadValue_Bool OstrelClientReadValue_Byte OstrelClientReadValue_Dword
OstrelClientReadValue_IP OstrelClientReadValue_MAC OstrelClientReadValue_String
OstrelClientReadVectorElement_Bool OstrelClientReadVectorElement_Byte OstrelClientReadVectorElement_Dword
OstrelClientReadVectorElement_IP OstrelClientReadVectorElement_MAC OstrelClientReadVectorElement_String
OstrelClientWriteValues OstrelClientWriteVectorElements OstrelClientWriteVectorElement OstrelClientWriteValue
OstrelClientDeinstanciate OstrelClientDeinstanciateOwner ostrelClientInstanciateStructure
LIST

# What a sanitizer puts there is not ours.
nm -D --defined-only "$1" | awk '{print $3}' | sed 's/@.*//' |
    grep -vE '^(__asan|__tsan|__ubsan|__lsan|__sanitizer|__odr_asan)' |
    sort >"$found"
diff "$expected" "$found"

if nm -D --defined-only "$2" | awk '{print $3}' | grep -vE '^_ZN(K)?8ostrelDb|^__(asan|odr_asan)'; then
    echo "is exported by the store"
    exit 1
fi
