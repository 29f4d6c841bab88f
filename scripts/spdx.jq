# What is wrong with an SPDX 2.3 document of scripts/bill-of-materials.sh, a line each: fields that the standard requires,
# expressions that are none, references to what is not there. Whether an identifier is one of SPDX's list appstreamcli knows.
def missing(where; $names): where as $where | . as $object | $names[] | select(($object[.] // "") == "") | "\($where) has no \(.)";
def whole: gsub("(?<before>^|[ (])(?!(AND|OR|WITH)($|[ )]))[A-Za-z0-9.-]+\\+?(?=$|[ )])"; "\(.before)x")
  | until(test("x (AND|OR|WITH) x|\\(x\\)") | not; gsub("x (AND|OR|WITH) x|\\(x\\)"; "x")) == "x";
def licences: .packages[] | .licenseDeclared, .licenseConcluded | select(. != null);
def references: [licences | scan("LicenseRef-[A-Za-z0-9.-]+")] | unique;

missing("the document"; ["spdxVersion", "dataLicense", "SPDXID", "name", "documentNamespace", "creationInfo", "packages"]),
(select(.spdxVersion != "SPDX-2.3" or .dataLicense != "CC0-1.0" or .SPDXID != "SPDXRef-DOCUMENT")
  | "the document is no SPDX 2.3"),
(select(.documentNamespace | test("^https://[^#]+$") | not) | "the namespace is \(.documentNamespace)"),
(.creationInfo | select(.created | test("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ$") | not) | "created is \(.created)"),
(.creationInfo | select((.creators | length) == 0 or any(.creators[]; test("^(Tool|Person|Organization): .") | not))
  | "the creators are \(.creators)"),
(.packages[] | missing(.name // "a package"; ["SPDXID", "name", "versionInfo", "downloadLocation", "licenseDeclared"])),
(.packages[] | select(.filesAnalyzed != false) | "\(.name) does not say that no file was analysed"),
(.packages[].SPDXID | select(test("^SPDXRef-[A-Za-z0-9.-]+$") | not) | "the identifier of a package is \(.)"),
(.packages | group_by(.SPDXID)[] | select(length > 1) | "two packages are \(.[0].SPDXID)"),
(.packages[].externalRefs[]? | missing("a reference"; ["referenceCategory", "referenceType", "referenceLocator"])),
(licences | select(whole | not) | "\"\(.)\" is no licence expression"),
(references as $named | [.hasExtractedLicensingInfos[].licenseId] | sort | select(. != $named)
  | "texts are kept of \(join(", ")), and named are \($named | join(", "))"),
(.hasExtractedLicensingInfos[] | missing("a licence text"; ["licenseId", "extractedText"])),
(([.packages[].SPDXID] + ["SPDXRef-DOCUMENT"]) as $known | .relationships[] | .spdxElementId, .relatedSpdxElement
  | select(. as $one | any($known[]; . == $one) | not) | "a relationship is of \(.)"),
([.relationships[] | select(.relationshipType == "DESCRIBES")] | select(length != 1) | "the document describes \(length) packages"),
(.relationships[].relationshipType | select(test("^(DESCRIBES|DYNAMIC_LINK|CONTAINS)$") | not) | "a relationship is \(.)")
