[playlist]
File1=http://host.example:8000junk/
Title1=Junk
