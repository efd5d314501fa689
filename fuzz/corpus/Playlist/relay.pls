[playlist]
NumberOfEntries=1
File1=http://localhost:8001
Title1=Relay
