' A host after the MSI's installation: both classes by their ProgIDs, each answering a call.
Dim c : Set c = CreateObject("kvoutlookdx.clsOutlookSynchronization")
c.AppName = "Practice"
CheckEqual c.AppName, "Practice", "clsOutlookSynchronization answers"
CheckEqual c.companyCollection.Count, 0, "its collection answers"
Set c = Nothing
Dim m : Set m = CreateObject("kvoutlookdx.clsOutlookSendMail")
m.Subject = "Year-end papers"
Check Not m Is Nothing, "clsOutlookSendMail made"
Set m = Nothing
Finish "installed"
