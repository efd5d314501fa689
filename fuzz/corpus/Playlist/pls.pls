[playlist]
NumberOfEntries=2
File1=http://stream.example.org:8000/live.mp3
Title1=(#1 - 12/500) Groove Radio
Length1=-1
File2=http://backup.example.org:8000/live.mp3
Title2=Backup
Length2=-1
Version=2
